#include "submissions_command.h"

#include <sys/stat.h>

#include <cstdio>
#include <ctime>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "delivery/csv.h"
#include "delivery/store/open_store.h"
#include "delivery/store/outbox.h"
#include "delivery/store/sqlite_store.h"
#include "serve/delivery_worker.h"
#include "serve_command.h"

namespace formwiz::cli {
namespace {

using Json = nlohmann::ordered_json;

constexpr char kPrefix[] = "formwiz submissions: ";

int64_t Now() { return static_cast<int64_t>(std::time(nullptr)); }

// "2026-11-24T10:00:00Z".
std::string IsoTime(int64_t unix_time) {
  const std::time_t t = static_cast<std::time_t>(unix_time);
  std::tm tm{};
  char text[32] = "";
  if (gmtime_r(&t, &tm))
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return text;
}

// The text as it is, but with control characters written as C escapes, so
// that a value cannot move the terminal's cursor or fake a line of output.
std::string Visible(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || c == 0x7f) {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

Json RecordJson(const store::SubmissionRecord& r, bool with_message) {
  Json fields = Json::array();
  for (const store::Field& field : r.fields) {
    fields.push_back({{"name", field.name}, {"value", field.value}});
  }
  Json out = {{"id", r.id},
              {"received_at", IsoTime(r.received_at)},
              {"page", r.page},
              {"client", r.client},
              {"form_index", r.form_index},
              {"subject", r.subject},
              {"send_mode", r.send_mode},
              {"requested_to", r.requested_to},
              {"recipient", r.recipient},
              {"status", std::string(store::StatusName(r.status))},
              {"detail", r.detail},
              {"message_id", r.message_id},
              {"attempts", r.attempts},
              {"sent_at", r.sent_at ? Json(IsoTime(r.sent_at)) : Json(nullptr)},
              {"fields", std::move(fields)}};
  if (with_message) out["message"] = r.message;
  return out;
}

// Stored text is valid UTF-8 (the handler refuses anything else); should a
// row hold something else all the same, it is shown with replacement
// characters rather than refused.
void PrintJson(const Json& json) {
  std::cout << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

std::optional<store::Status> StatusOption(const SubmissionsOptions& options) {
  if (!options.status) return std::nullopt;
  return store::StatusFromName(*options.status);
}

// The submissions the options select, in number order.
std::vector<store::SubmissionRecord> Selected(
    store::Store& store, const SubmissionsOptions& options) {
  store::Query query;
  query.status = StatusOption(options);
  return store.List(query);
}

// list --json and export --json: an array of the records, without mails.
int PrintRecordsJson(const std::vector<store::SubmissionRecord>& records) {
  Json all = Json::array();
  for (const auto& r : records) all.push_back(RecordJson(r, false));
  PrintJson(all);
  return kExitOk;
}

int List(store::Store& store, const SubmissionsOptions& options) {
  const auto records = Selected(store, options);
  if (options.json) return PrintRecordsJson(records);
  for (const auto& r : records) {
    const std::string& to = r.recipient.empty() ? r.requested_to : r.recipient;
    std::cout << r.id << "  " << IsoTime(r.received_at) << "  "
              << store::StatusName(r.status) << "  " << Visible(to) << "  "
              << Visible(r.subject) << "  " << Visible(r.page) << '\n';
  }
  return kExitOk;
}

int Show(store::Store& store, const SubmissionsOptions& options) {
  const auto r = store.Get(options.id);
  if (!r) {
    std::cerr << kPrefix << "no submission " << options.id << '\n';
    return kExitFailure;
  }
  if (options.json) {
    PrintJson(RecordJson(*r, true));
    return kExitOk;
  }
  const auto line = [](const char* name, const std::string& value) {
    std::cout << name << ": " << Visible(value) << '\n';
  };
  line("id", std::to_string(r->id));
  line("received_at", IsoTime(r->received_at));
  line("status", std::string(store::StatusName(r->status)));
  line("detail", r->detail);
  line("page", r->page);
  line("client", r->client);
  line("form_index", std::to_string(r->form_index));
  line("subject", r->subject);
  line("send_mode", r->send_mode);
  line("requested_to", r->requested_to);
  line("recipient", r->recipient);
  line("mail_from", r->mail_from);
  line("message_id", r->message_id);
  line("attempts", std::to_string(r->attempts));
  line("next_attempt_at",
       r->status == store::Status::kQueued ? IsoTime(r->next_attempt_at) : "");
  line("sent_at", r->sent_at ? IsoTime(r->sent_at) : "");
  std::cout << "fields:\n";
  for (const store::Field& field : r->fields) {
    std::cout << "  " << Visible(field.name) << ": " << Visible(field.value)
              << '\n';
  }
  if (!r->message.empty()) {
    // The composed mail, line by line as a mail reader gets it.
    std::cout << "message:\n";
    size_t start = 0;
    while (start < r->message.size()) {
      size_t end = r->message.find("\r\n", start);
      if (end == std::string::npos) end = r->message.size();
      std::cout << "  " << Visible(r->message.substr(start, end - start))
                << '\n';
      start = end + 2;
    }
  }
  return kExitOk;
}

// One column per field name, in the order the names first appear; each
// submission's fields are already in its form's order, so the columns follow
// the forms. A name a submission does not have is an empty cell.
int Export(store::Store& store, const SubmissionsOptions& options) {
  const auto records = Selected(store, options);
  if (options.json) return PrintRecordsJson(records);
  std::vector<std::string> names;
  std::map<std::string, size_t> column;
  for (const auto& r : records) {
    for (const store::Field& field : r.fields) {
      if (column.emplace(field.name, names.size()).second) {
        names.push_back(field.name);
      }
    }
  }
  std::vector<std::string> header = {"id", "received_at", "status", "page"};
  header.insert(header.end(), names.begin(), names.end());
  std::cout << delivery::CsvRecord(header);
  for (const auto& r : records) {
    std::vector<std::string> cells = {
        std::to_string(r.id), IsoTime(r.received_at),
        std::string(store::StatusName(r.status)), r.page};
    cells.resize(4 + names.size());
    for (const store::Field& field : r.fields) {
      std::string& cell = cells[4 + column[field.name]];
      // The handler joins a name posted twice into one field; should a row
      // hold it twice all the same, no value is lost.
      cell = cell.empty() ? field.value : cell + ", " + field.value;
    }
    std::cout << delivery::CsvRecord(cells);
  }
  return kExitOk;
}

int Retry(store::Store& store, const delivery::Config& config,
          const SubmissionsOptions& options) {
  if (options.id != 0 && !store.Get(options.id)) {
    std::cerr << kPrefix << "no submission " << options.id << '\n';
    return kExitFailure;
  }
  const int64_t due = store.Retry(options.id, Now());
  std::cout << "due again: " << due << '\n';
  const auto transport = serve::TransportFor(config);
  if (!transport) {
    std::cout << "no mail server configured (--smtp, --from or a "
                 "configuration file): the mails wait for formwiz serve or "
                 "formwiz-mail\n";
    return kExitOk;
  }
  const store::OutboxPass pass =
      store::DeliverDue(store, *transport, config.outbox, store::WorkerName(),
                        Now, [] { return true; });
  std::cout << "sent " << pass.sent << ", retried " << pass.retried
            << ", failed " << pass.failed << '\n';
  return kExitOk;
}

int Purge(store::Store& store, const SubmissionsOptions& options) {
  std::vector<store::Status> statuses;
  for (const std::string& name : options.statuses) {
    statuses.push_back(*store::StatusFromName(name));
  }
  if (statuses.empty()) {
    statuses = {store::Status::kSent, store::Status::kSpam,
                store::Status::kRefused};
  }
  const int64_t before =
      options.older_than ? Now() - *options.older_than * 86400 : 0;
  std::cout << "deleted " << store.Purge(statuses, before) << '\n';
  return kExitOk;
}

}  // namespace

int RunSubmissions(const SubmissionsOptions& options) {
  const auto config =
      CommandConfig(options.config, options.smtp, options.from, kPrefix);
  if (!config) return kExitFailure;
  const std::string data = DataDir(options.data, *config);
  // Opening would make an empty store: a mistyped --data must say so rather
  // than show no submissions.
  struct stat st;
  const std::string file = data + "/" + store::SqliteStore::kFileName;
  if (config->store_url.empty() && stat(file.c_str(), &st) != 0) {
    std::cerr << kPrefix << data << ": no submissions store here ("
              << store::SqliteStore::kFileName << ")\n";
    return kExitFailure;
  }
  try {
    const auto store = store::OpenStore(config->store_url, data);
    if (options.action == "list") return List(*store, options);
    if (options.action == "show") return Show(*store, options);
    if (options.action == "export") return Export(*store, options);
    if (options.action == "retry") return Retry(*store, *config, options);
    if (options.action == "purge") return Purge(*store, options);
  } catch (const store::StoreError& e) {
    std::cerr << kPrefix << store::StoreName(config->store_url, data) << ": "
              << e.what() << '\n';
    return kExitFailure;
  }
  return kExitUsage;
}

Command AddSubmissionsCommand(CLI::App& parent) {
  auto options = std::make_shared<SubmissionsOptions>();
  CLI::App* app = parent.add_subcommand(
      "submissions", "Read and manage the stored submissions and their outbox");
  app->require_subcommand(1);
  const auto status_names =
      CLI::IsMember({"queued", "sent", "failed", "refused", "spam"});
  auto add = [&](const char* name, const char* help) {
    CLI::App* sub = app->add_subcommand(name, help);
    sub->add_option("--data", options->data,
                    "The folder of the store (default: the configuration's, "
                    "else $XDG_DATA_HOME/formwiz)");
    sub->add_option("--config", options->config, "A TOML configuration file");
    sub->callback([options, name] { options->action = name; });
    return sub;
  };
  CLI::App* list =
      add("list",
          "One line per submission: ID, received (UTC), status, recipient (or "
          "the address asked for), subject, page");
  list->add_flag("--json", options->json, "A JSON array instead");
  list->add_option("--status", options->status, "Only this status")
      ->check(status_names);
  CLI::App* show = add("show", "Every property and field of one submission");
  show->add_option("ID", options->id, "The submission's number")
      ->required()
      ->check(CLI::PositiveNumber);
  show->add_flag("--json", options->json,
                 "A JSON object, with the composed mail");
  CLI::App* exp =
      add("export",
          "All submissions, one column per field name (CSV, the default) or "
          "JSON");
  auto* csv = exp->add_flag("--csv", options->csv, "RFC 4180 CSV (default)");
  exp->add_flag("--json", options->json, "A JSON array")->excludes(csv);
  exp->add_option("--status", options->status, "Only this status")
      ->check(status_names);
  CLI::App* retry =
      add("retry",
          "Make waiting and failed mails due now (one, or all), then send them "
          "when a mail server is configured");
  retry->add_option("ID", options->id, "The submission's number (default: all)")
      ->check(CLI::PositiveNumber);
  retry->add_option("--smtp", options->smtp,
                    "The mail server, smtp://host[:port]");
  retry->add_option("--from", options->from, "The sender of every mail");
  CLI::App* purge =
      add("purge",
          "Delete submissions by status (default sent, spam and refused; "
          "queued ones only when named)");
  purge->add_option("--status", options->statuses, "A status to delete")
      ->check(status_names);
  purge
      ->add_option("--older-than", options->older_than,
                   "Only those received more than DAYS days ago")
      ->check(CLI::NonNegativeNumber);
  return {app, [options] { return RunSubmissions(*options); }};
}

}  // namespace formwiz::cli
