// One submission as the store keeps it: what the visitor sent, where it came
// from, and the state of its mail in the outbox. Plain values, so that the
// store engines know nothing of HTTP, forms or MIME.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace formwiz::store {

// Where a submission stands. Only kQueued is ever picked up for sending.
enum class Status {
  kQueued,   // accepted, its mail waits in the outbox (or is being retried)
  kSent,     // the mail server took the mail
  kFailed,   // the mail server refused it for good, or attempts ran out
  kRefused,  // accepted and kept, but its recipient is not allowed: no mail
  kSpam,     // the honeypot was filled: kept, never mailed
};

// "queued", "sent", "failed", "refused", "spam".
std::string_view StatusName(Status status);
std::optional<Status> StatusFromName(std::string_view name);

struct Field {
  std::string name;
  std::string value;
  bool operator==(const Field&) const = default;
};

struct SubmissionRecord {
  int64_t id = 0;             // given by the store on Add
  std::string key;            // random, unique; the Message-ID's left part
  int64_t received_at = 0;    // Unix time, seconds
  std::string page;           // the page the form came from (Referer), or ""
  std::string client;         // the client's address
  int form_index = 0;         // qln_FormIndex as a number, 0 when absent
  std::string subject;        // the mail's subject as sent
  std::string send_mode;      // "1" human-readable, "2" comma-separated
  std::string requested_to;   // qln_EmailTo as posted
  std::string recipient;      // the address mailed, "" when none
  std::vector<Field> fields;  // the visitor's fields, in sort order
  Status status = Status::kQueued;
  std::string detail;           // why refused / spam / the last send error
  std::string message_id;       // "<key@domain>", "" when nothing is mailed
  std::string mail_from;        // envelope sender
  std::string message;          // the composed RFC 5322 message, "" if none
  int attempts = 0;             // send attempts made
  int64_t next_attempt_at = 0;  // Unix time when a queued mail is due
  int64_t sent_at = 0;          // Unix time the server took it, 0 if not
};

}  // namespace formwiz::store
