// How a composed mail leaves: a transport hands the message's bytes to a
// mail server (SMTP through libcurl) or to the local mailer (sendmail).
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace formwiz::store {

struct SendResult {
  enum class Kind {
    kSent,       // the server accepted the mail for every recipient
    kTemporary,  // try again later: no connection, timeout, 4xx
    kPermanent,  // the server refused for good: 5xx
  };
  Kind kind = Kind::kTemporary;
  std::string detail;  // the server's or the library's words, one line
};

class Transport {
 public:
  virtual ~Transport() = default;
  // Sends `message` (complete RFC 5322 text, CR LF line ends) from the
  // envelope sender `from` to `recipients`. Never throws.
  virtual SendResult Send(const std::string& from,
                          const std::vector<std::string>& recipients,
                          const std::string& message) = 0;
};

struct SmtpSettings {
  std::string url;   // smtp://host[:port] or smtps://host[:port]
  std::string user;  // "" for no authentication
  std::string password;
  // STARTTLS on smtp://: "off", "try" (when offered) or "required". With a
  // user, "try" is "required": the password never goes in clear unless
  // "off" says so.
  std::string starttls = "try";
  int timeout_seconds = 30;  // connect and whole transfer, each
};

// libcurl's SMTP client.
std::unique_ptr<Transport> MakeSmtpTransport(const SmtpSettings& settings);
// `command -oi -t` (and -f FROM), the message on its standard input; exit
// status 0 is sent, 75 (EX_TEMPFAIL) temporary, anything else permanent.
std::unique_ptr<Transport> MakeSendmailTransport(const std::string& command,
                                                 int timeout_seconds);

}  // namespace formwiz::store
