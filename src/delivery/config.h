// The configuration file: one TOML file (toml++); every key is told in the
// README's "Configuration" section. Command-line flags override it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "delivery/limits.h"
#include "delivery/store/outbox.h"
#include "delivery/store/transport.h"

namespace formwiz::delivery {

struct Config {
  std::string listen = "127.0.0.1:8080";  // [server] listen
  std::string data_dir;                   // [server] data; "" = default
  std::string store_url;                  // [store] url; "" = SQLite
  std::string from;                       // [mail] from
  std::string default_subject = "Form submission";  // [mail] default_subject
  store::SmtpSettings smtp;                    // [mail] smtp, smtp_user, ...
  std::string sendmail;                        // [mail] sendmail: a command
  std::vector<std::string> allow_addresses;    // [recipients] allow
  std::vector<std::string> allow_domains;      // [recipients] allow_domains
  std::map<std::string, std::string> aliases;  // [recipients.aliases]
  Limits limits;                               // [limits]
  store::OutboxSettings outbox;                // [outbox]

  // True when mail can leave: an SMTP URL or a sendmail command is set.
  bool CanSend() const { return !smtp.url.empty() || !sendmail.empty(); }
};

// Reads `path`. An unreadable or invalid file, an unknown key or a value of
// the wrong type gives nothing and `error` names the file, line and key.
std::optional<Config> LoadConfig(const std::string& path, std::string& error);

// The default data folder: $XDG_DATA_HOME/formwiz, else
// ~/.local/share/formwiz.
std::string DefaultDataDir();
// formwiz-mail's configuration when FORMWIZ_CONFIG is unset.
inline constexpr const char* kDefaultCgiConfig = "/etc/formwiz/formwiz.toml";

}  // namespace formwiz::delivery
