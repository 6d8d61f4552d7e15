// The mail a submission becomes, composed with GMime: RFC 2047 subject,
// UTF-8 text body, folding, and for comma-separated mode a text/csv
// attachment. Nothing a visitor sent reaches a header except through GMime's
// encoders, and never with a line break.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "delivery/store/record.h"

namespace formwiz::delivery {

struct MailInput {
  std::string from;     // the configured sender, a bare address
  std::string to;       // the resolved recipient, a bare address
  std::string subject;  // as posted; a default is used when empty
  std::string default_subject = "Form submission";
  bool comma_separated = false;      // qln_SendMode "2"
  std::vector<store::Field> fields;  // in sort order
  std::string page;                  // where the form was, "" when unknown
  std::string client;                // the visitor's address
  int64_t received_at = 0;           // Unix time
  std::string message_id;            // "<key@domain>"
};

// "Name: value" blocks, one per field, a blank line between blocks; a value
// of several lines keeps them, indented under the name.
std::string HumanReadableBody(const std::vector<store::Field>& fields);
// The header line of names and the line of values (csv.h).
std::string CommaSeparatedBody(const std::vector<store::Field>& fields);

// The Reply-To address: the value of the first field that the README names
// as an address field (Email, email, E-mail, EmailAddress, ...; see
// IsAddressFieldName) and that holds exactly one valid address.
std::optional<std::string> ReplyToFrom(const std::vector<store::Field>& fields);
bool IsAddressFieldName(const std::string& name);

// The subject as it will be sent: control characters turned to spaces,
// trimmed, at most 200 characters; the default when nothing is left. "=?"
// is written "= ?", so that no text a visitor typed reads as an encoded
// word (which a mail reader would decode, line breaks and all).
std::string CleanSubject(const std::string& subject,
                         const std::string& default_subject);

// The whole message, CR LF line ends, ready for a transport.
std::string ComposeMail(const MailInput& input);

// Makes GMime ready; safe to call more than once and from any thread.
void InitMime();

}  // namespace formwiz::delivery
