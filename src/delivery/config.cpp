#include "delivery/config.h"

#include <glib.h>
#include <toml++/toml.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "delivery/address.h"
#include "delivery/store/postgres_store.h"
#include "delivery/text_util.h"

namespace formwiz::delivery {
namespace {

// A configuration mistake, carried out of the readers to LoadConfig.
struct ConfigError {
  std::string message;
};

class Reader {
 public:
  explicit Reader(std::string path) : path_(std::move(path)) {}

  [[noreturn]] void Fail(const toml::source_region& where,
                         const std::string& key, const std::string& what) {
    std::ostringstream out;
    out << path_;
    if (where.begin.line > 0) out << ":" << where.begin.line;
    out << ": " << key << ": " << what;
    throw ConfigError{out.str()};
  }

  // Runs `read` on each key of `table`; a key `read` does not know fails.
  void Keys(const toml::table& table, const std::string& prefix,
            const std::function<bool(const std::string&, const toml::node&,
                                     const std::string&)>& read) {
    for (const auto& [key, node] : table) {
      const std::string name = std::string(key.str());
      const std::string full = prefix.empty() ? name : prefix + "." + name;
      if (!read(name, node, full)) {
        Fail(key.source(), full,
             node.is_table() ? "unknown table" : "unknown key");
      }
    }
  }

  const toml::table& Table(const toml::node& node, const std::string& key) {
    if (!node.is_table()) Fail(node.source(), key, "must be a table");
    return *node.as_table();
  }

  std::string String(const toml::node& node, const std::string& key) {
    if (!node.is_string()) Fail(node.source(), key, "must be a string");
    const std::string value = node.as_string()->get();
    if (text::HasAsciiControl(value)) {
      Fail(node.source(), key, "holds a control character");
    }
    return value;
  }

  int Number(const toml::node& node, const std::string& key, int64_t low,
             int64_t high) {
    if (!node.is_integer()) Fail(node.source(), key, "must be an integer");
    const int64_t value = node.as_integer()->get();
    if (value < low || value > high) {
      Fail(node.source(), key,
           "must be from " + std::to_string(low) + " to " +
               std::to_string(high));
    }
    return static_cast<int>(value);
  }

  std::vector<std::string> Strings(const toml::node& node,
                                   const std::string& key) {
    if (!node.is_array()) Fail(node.source(), key, "must be an array");
    std::vector<std::string> out;
    for (const toml::node& item : *node.as_array()) {
      out.push_back(String(item, key));
    }
    return out;
  }

  std::string Address(const toml::node& node, const std::string& key) {
    const std::string text = String(node, key);
    const std::optional<std::string> address = ParseSingleAddress(text);
    if (!address) {
      Fail(node.source(), key, "\"" + text + "\" is not one e-mail address");
    }
    return *address;
  }

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

constexpr int64_t kDay = 24 * 3600;

void ReadServer(Reader& r, const toml::table& table, Config& config) {
  r.Keys(table, "server",
         [&](const std::string& name, const toml::node& node,
             const std::string& key) {
           if (name == "listen") {
             config.listen = r.String(node, key);
             if (config.listen.empty()) r.Fail(node.source(), key, "is empty");
           } else if (name == "data") {
             config.data_dir = r.String(node, key);
           } else {
             return false;
           }
           return true;
         });
}

void ReadStore(Reader& r, const toml::table& table, Config& config) {
  r.Keys(table, "store",
         [&](const std::string& name, const toml::node& node,
             const std::string& key) {
           if (name != "url") return false;
           config.store_url = r.String(node, key);
           if (!config.store_url.empty() &&
               !store::PostgresStore::IsConnectionString(config.store_url)) {
             r.Fail(node.source(), key,
                    "is neither postgresql://... nor \"host=... dbname=...\"");
           }
           return true;
         });
}

std::string ReadPasswordFile(Reader& r, const toml::node& node,
                             const std::string& key) {
  std::filesystem::path file = r.String(node, key);
  // A relative path is taken from the configuration file's folder, so that
  // the file means the same to every program that reads it.
  if (file.is_relative()) {
    file = std::filesystem::path(r.path()).parent_path() / file;
  }
  std::ifstream in(file, std::ios::binary);
  std::stringstream text;
  if (!in || !(text << in.rdbuf())) {
    r.Fail(node.source(), key, "cannot read " + file.string());
  }
  std::string password = text.str();
  while (!password.empty() &&
         (password.back() == '\n' || password.back() == '\r')) {
    password.pop_back();
  }
  if (text::HasAsciiControl(password)) {
    r.Fail(node.source(), key, "the password holds a control character");
  }
  return password;
}

void ReadMail(Reader& r, const toml::table& table, Config& config) {
  bool password_set = false;
  r.Keys(
      table, "mail",
      [&](const std::string& name, const toml::node& node,
          const std::string& key) {
        if (name == "from") {
          config.from = r.Address(node, key);
        } else if (name == "default_subject") {
          config.default_subject = r.String(node, key);
        } else if (name == "smtp") {
          config.smtp.url = r.String(node, key);
          const bool smtp = config.smtp.url.starts_with("smtp://");
          const bool smtps = config.smtp.url.starts_with("smtps://");
          if (!smtp && !smtps) {
            r.Fail(node.source(), key, "must begin with smtp:// or smtps://");
          }
          if (!g_uri_is_valid(config.smtp.url.c_str(), G_URI_FLAGS_NONE,
                              nullptr)) {
            r.Fail(node.source(), key, "is not a valid URL");
          }
        } else if (name == "smtp_user") {
          config.smtp.user = r.String(node, key);
        } else if (name == "smtp_password" || name == "smtp_password_file") {
          if (password_set) {
            r.Fail(node.source(), key,
                   "give smtp_password or smtp_password_file, not both");
          }
          password_set = true;
          config.smtp.password = name == "smtp_password"
                                     ? r.String(node, key)
                                     : ReadPasswordFile(r, node, key);
        } else if (name == "starttls") {
          config.smtp.starttls = r.String(node, key);
          if (config.smtp.starttls != "off" && config.smtp.starttls != "try" &&
              config.smtp.starttls != "required") {
            r.Fail(node.source(), key,
                   "must be \"off\", \"try\" or \"required\"");
          }
        } else if (name == "timeout_seconds") {
          config.smtp.timeout_seconds = r.Number(node, key, 1, 3600);
        } else if (name == "sendmail") {
          config.sendmail = r.String(node, key);
        } else {
          return false;
        }
        return true;
      });
}

void ReadRecipients(Reader& r, const toml::table& table, Config& config) {
  r.Keys(
      table, "recipients",
      [&](const std::string& name, const toml::node& node,
          const std::string& key) {
        if (name == "allow") {
          if (!node.is_array()) r.Fail(node.source(), key, "must be an array");
          for (const toml::node& item : *node.as_array()) {
            config.allow_addresses.push_back(r.Address(item, key));
          }
        } else if (name == "allow_domains") {
          for (const std::string& domain : r.Strings(node, key)) {
            // A domain is good when an address at it would be; it is kept in
            // the ASCII form addresses are compared in.
            const std::optional<std::string> address =
                domain.empty() ? std::nullopt
                               : ParseSingleAddress("postmaster@" + domain);
            if (!address) {
              r.Fail(node.source(), key, "\"" + domain + "\" is not a domain");
            }
            config.allow_domains.push_back(AddressDomain(*address));
          }
        } else if (name == "aliases") {
          r.Keys(r.Table(node, key), key,
                 [&](const std::string& alias, const toml::node& value,
                     const std::string& alias_key) {
                   if (alias.empty() || text::HasAsciiControl(alias)) {
                     r.Fail(value.source(), alias_key, "is not a usable alias");
                   }
                   config.aliases[alias] = r.Address(value, alias_key);
                   return true;
                 });
        } else {
          return false;
        }
        return true;
      });
}

void ReadLimits(Reader& r, const toml::table& table, Config& config) {
  Limits& limits = config.limits;
  r.Keys(table, "limits",
         [&](const std::string& name, const toml::node& node,
             const std::string& key) {
           if (name == "max_body") {
             limits.max_body = r.Number(node, key, 1, 64 << 20);
           } else if (name == "max_fields") {
             limits.max_fields = r.Number(node, key, 1, 100000);
           } else if (name == "max_name_length") {
             limits.max_name_length = r.Number(node, key, 1, 64 << 10);
           } else if (name == "max_value_length") {
             limits.max_value_length = r.Number(node, key, 1, 64 << 20);
           } else if (name == "rate_per_minute") {
             limits.rate_per_minute = r.Number(node, key, 1, 1000000);
           } else if (name == "rate_burst") {
             limits.rate_burst = r.Number(node, key, 1, 1000000);
           } else if (name == "timeout_seconds") {
             limits.timeout_seconds = r.Number(node, key, 1, 3600);
           } else if (name == "connections_per_ip") {
             limits.connections_per_ip = r.Number(node, key, 1, 10000);
           } else {
             return false;
           }
           return true;
         });
}

void ReadOutbox(Reader& r, const toml::table& table, Config& config) {
  store::OutboxSettings& outbox = config.outbox;
  r.Keys(table, "outbox",
         [&](const std::string& name, const toml::node& node,
             const std::string& key) {
           if (name == "lease_seconds") {
             outbox.lease_seconds = r.Number(node, key, 1, kDay);
           } else if (name == "batch") {
             outbox.batch = r.Number(node, key, 1, 10000);
           } else if (name == "max_attempts") {
             outbox.max_attempts = r.Number(node, key, 1, 10000);
           } else if (name == "first_backoff_seconds") {
             outbox.first_backoff_seconds = r.Number(node, key, 1, kDay);
           } else if (name == "max_backoff_seconds") {
             outbox.max_backoff_seconds = r.Number(node, key, 1, 30 * kDay);
           } else {
             return false;
           }
           return true;
         });
  if (outbox.max_backoff_seconds < outbox.first_backoff_seconds) {
    const toml::node* node = table.get("max_backoff_seconds");
    r.Fail(node != nullptr ? node->source() : table.source(),
           "outbox.max_backoff_seconds",
           "must not be below outbox.first_backoff_seconds");
  }
}

}  // namespace

std::optional<Config> LoadConfig(const std::string& path, std::string& error) {
  Config config;
  try {
    const toml::table root = toml::parse_file(path);
    Reader r(path);
    r.Keys(root, "",
           [&](const std::string& name, const toml::node& node,
               const std::string& key) {
             if (name == "server") {
               ReadServer(r, r.Table(node, key), config);
             } else if (name == "mail") {
               ReadMail(r, r.Table(node, key), config);
             } else if (name == "recipients") {
               ReadRecipients(r, r.Table(node, key), config);
             } else if (name == "limits") {
               ReadLimits(r, r.Table(node, key), config);
             } else if (name == "outbox") {
               ReadOutbox(r, r.Table(node, key), config);
             } else if (name == "store") {
               ReadStore(r, r.Table(node, key), config);
             } else {
               return false;
             }
             return true;
           });
  } catch (const toml::parse_error& e) {
    std::ostringstream out;
    out << path;
    if (e.source().begin.line > 0) out << ":" << e.source().begin.line;
    out << ": " << e.description();
    error = out.str();
    return std::nullopt;
  } catch (const ConfigError& e) {
    error = e.message;
    return std::nullopt;
  }
  return config;
}

std::string DefaultDataDir() {
  const char* data_home = std::getenv("XDG_DATA_HOME");
  // The XDG rules ignore a relative XDG_DATA_HOME.
  if (data_home != nullptr && data_home[0] == '/') {
    return std::string(data_home) + "/formwiz";
  }
  const char* home = std::getenv("HOME");
  const std::string base =
      home != nullptr && home[0] != '\0' ? home : g_get_home_dir();
  return base + "/.local/share/formwiz";
}

}  // namespace formwiz::delivery
