// formwiz-mail: the form handler as a CGI program, for a site that an
// existing web server (Apache, lighttpd, nginx with fcgiwrap) runs behind its
// own TLS, limits and logs. One request per process: the web server has
// parsed the HTTP and passes the request in the CGI variables and the body
// on standard input.
//
// The answer goes out and standard output is closed before any mail is
// sent, so that the visitor never waits for the mail server; a child of the
// process then empties the outbox for a bounded time, so that mail leaves
// without a daemon. Whatever it leaves is sent by the next request, by
// `formwiz submissions retry` or by `formwiz serve` on the same store.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <string>

#include "delivery/answer_page.h"
#include "delivery/config.h"
#include "delivery/handler.h"
#include "delivery/rate_limit.h"
#include "delivery/store/open_store.h"
#include "delivery/store/outbox.h"
#include "formwiz/version.h"

namespace {

using namespace formwiz;

// The longest the process stays after answering, sending mail.
constexpr int kDeliverySeconds = 20;

std::string Env(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

const char* Reason(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 400:
      return "Bad Request";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 411:
      return "Length Required";
    case 413:
      return "Content Too Large";
    case 415:
      return "Unsupported Media Type";
    case 422:
      return "Unprocessable Content";
    case 429:
      return "Too Many Requests";
    case 503:
      return "Service Unavailable";
    default:
      return status >= 500 ? "Internal Server Error"
                           : (status >= 400 ? "Bad Request" : "OK");
  }
}

// Set once standard output is closed: nothing may be written after that.
bool answered = false;

void Write(const std::string& bytes) {
  if (!answered) std::fwrite(bytes.data(), 1, bytes.size(), stdout);
}

// The CGI answer. Header names and values come from the handler, which puts
// no visitor text into them; a line break in one is dropped all the same,
// so that no header can be split.
void Answer(const delivery::Response& response) {
  const auto clean = [](std::string text) {
    text.erase(std::remove_if(text.begin(), text.end(),
                              [](char c) { return c == '\r' || c == '\n'; }),
               text.end());
    return text;
  };
  std::string head = "Status: " + std::to_string(response.status) + " " +
                     Reason(response.status) + "\r\n";
  head += "Content-Type: " + clean(response.content_type) + "\r\n";
  for (const auto& [name, value] : response.headers) {
    head += clean(name) + ": " + clean(value) + "\r\n";
  }
  head += "X-Content-Type-Options: nosniff\r\n\r\n";
  Write(head);
  Write(response.body);
}

// The web server's error log gets the reason; the visitor a short page.
int Fail(const std::string& why) {
  std::fprintf(stderr, "formwiz-mail: %s\n", why.c_str());
  delivery::Response response;
  response.status = 500;
  response.content_type = "text/html; charset=utf-8";
  response.body =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta "
      "charset=\"utf-8\">\n<title>Form not sent</title>\n</head>\n<body>\n"
      "<h1>Form not sent</h1>\n<p>The form handler is not set up correctly. "
      "Please try again later.</p>\n</body>\n</html>\n";
  if (!answered) {
    Answer(response);
    std::fflush(stdout);
  }
  return 0;
}

// Exactly `length` bytes of standard input, or nothing when it ends early.
std::optional<std::string> ReadBody(uint64_t length) {
  std::string body(static_cast<size_t>(length), '\0');
  size_t done = 0;
  while (done < body.size()) {
    const ssize_t n =
        read(STDIN_FILENO, body.data() + done, body.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return std::nullopt;
    done += static_cast<size_t>(n);
  }
  return body;
}

std::unique_ptr<store::Transport> TransportFor(const delivery::Config& config) {
  // A slow mail server must not hold the process past its time: one send
  // gets at most that long too.
  if (!config.smtp.url.empty()) {
    store::SmtpSettings smtp = config.smtp;
    smtp.timeout_seconds = std::min(smtp.timeout_seconds, kDeliverySeconds);
    return store::MakeSmtpTransport(smtp);
  }
  if (!config.sendmail.empty()) {
    return store::MakeSendmailTransport(
        config.sendmail,
        std::min(config.smtp.timeout_seconds, kDeliverySeconds));
  }
  return nullptr;
}

int Run() {
  std::string config_file = Env("FORMWIZ_CONFIG");
  if (config_file.empty()) config_file = delivery::kDefaultCgiConfig;
  std::string error;
  const auto config = delivery::LoadConfig(config_file, error);
  if (!config) return Fail(error);
  const std::string data =
      config->data_dir.empty() ? delivery::DefaultDataDir() : config->data_dir;
  std::unique_ptr<store::Store> store;
  try {
    store = store::OpenStore(config->store_url, data);
  } catch (const store::StoreError& e) {
    // A database server restarting or out of reach: the visitor may try
    // again, as when the store fails later on.
    std::fprintf(stderr, "formwiz-mail: %s: %s\n",
                 store::StoreName(config->store_url, data).c_str(), e.what());
    delivery::Request failed;
    failed.referer = Env("HTTP_REFERER");
    failed.accept = Env("HTTP_ACCEPT");
    delivery::Response response = delivery::Refusal(
        failed, 503,
        "The server could not keep your entries just now, so nothing was "
        "sent. Please try again in a few minutes.");
    response.headers.emplace_back("Retry-After", "60");
    Answer(response);
    return 0;
  }

  delivery::Request request;
  request.method = Env("REQUEST_METHOD");
  request.content_type = Env("CONTENT_TYPE");
  request.client = Env("REMOTE_ADDR");
  request.referer = Env("HTTP_REFERER");
  request.accept = Env("HTTP_ACCEPT");
  const std::string length_text = Env("CONTENT_LENGTH");
  if (!length_text.empty()) {
    uint64_t length = 0;
    const char* end = length_text.data() + length_text.size();
    const auto [at, ec] = std::from_chars(length_text.data(), end, length);
    if (ec != std::errc() || at != end) {
      Answer(delivery::Refusal(request, 400,
                               "The request's length is not a number."));
      return 0;
    }
    request.content_length = length;
  }

  // The process remembers nothing between requests: the rate is the
  // store's count of this address's recent submissions.
  delivery::StoreRateLimiter limiter(*store, config->limits.rate_per_minute);
  delivery::Handler handler(*config, *store,
                            delivery::PolicyFromConfig(*config), limiter);
  delivery::Response response;
  if (auto refused = handler.Precheck(request)) {
    response = std::move(*refused);
  } else if (request.content_length &&
             *request.content_length > config->limits.max_body) {
    response = delivery::Refusal(request, 413, "The form is too large.");
  } else {
    const auto body = ReadBody(request.content_length.value_or(0));
    if (!body) {
      response = delivery::Refusal(request, 400,
                                   "The request ended before its body did.");
    } else {
      request.body = *body;
      response = handler.Handle(request, /*prechecked=*/true);
    }
  }
  Answer(response);
  std::fflush(stdout);
  // A web server ends its CGI program once the answer is complete (lighttpd
  // sends SIGTERM the moment standard output closes), so the mail is sent
  // by a child in a session of its own, made before standard output closes.
  // A SQLite connection must not cross a fork: the store is closed first and
  // the child opens its own. When fork fails, the mail is sent here for as
  // long as the web server lets the process live.
  const bool deliver = config->CanSend();
  pid_t child = -1;
  if (deliver) {
    store.reset();
    child = fork();
  }
  // Closing standard output, in both processes, completes the answer.
  std::fclose(stdout);
  close(STDOUT_FILENO);
  answered = true;
  if (!deliver || child > 0) return 0;
  if (child == 0) {
    setsid();
    // Some web servers read the program's standard error until it closes
    // before they finish the request: the child lets go of it and of
    // standard input. A failed send is recorded in the store, where
    // `formwiz submissions` shows it.
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null >= 0) {
      dup2(null, STDIN_FILENO);
      dup2(null, STDERR_FILENO);
      close(null);
    }
  }
  const auto transport = TransportFor(*config);
  if (!transport) return 0;
  try {
    store = store::OpenStore(config->store_url, data);
  } catch (const store::StoreError& e) {
    std::fprintf(stderr, "formwiz-mail: delivery: %s\n", e.what());
    return 0;
  }
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::seconds(kDeliverySeconds);
  try {
    store::DeliverDue(
        *store, *transport, config->outbox, store::WorkerName(),
        [] { return static_cast<int64_t>(std::time(nullptr)); },
        [&] { return std::chrono::steady_clock::now() < deadline; });
  } catch (const store::StoreError& e) {
    // The mails stay queued; the next request tries again.
    std::fprintf(stderr, "formwiz-mail: delivery: %s\n", e.what());
  }
  return 0;
}

// Run by hand rather than by a web server, the program answers the two
// questions every installed program does, so that `man formwiz-mail` is made
// from this text.
int AnswerCommandLine(const std::string& arg) {
  if (arg == "--version") {
    std::printf("formwiz-mail %s\n", FORMWIZ_VERSION);
    return 0;
  }
  const bool help = arg == "--help";
  std::fputs(
      "Usage: formwiz-mail\n"
      "The form handler as a CGI program: a web server runs it for each post\n"
      "to a form's action (/cgi-bin/formmail), passing the request in the CGI\n"
      "variables and the body on standard input. It stores the submission,\n"
      "answers the visitor, then mails what is due for at most 20 seconds.\n"
      "\n"
      "Options:\n"
      "  --help     Print this help and exit\n"
      "  --version  Print the version and exit\n"
      "\n"
      "Environment:\n"
      "  FORMWIZ_CONFIG  The configuration file (default "
      "/etc/formwiz/formwiz.toml)\n"
      "\n"
      "Point the web server's cgi-bin at the installed program, for example\n"
      "ScriptAlias /cgi-bin/formmail /usr/bin/formwiz-mail (Apache).\n",
      help ? stdout : stderr);
  return help ? 0 : 2;
}

}  // namespace

int main(int argc, char** argv) {
  // Under a web server (GATEWAY_INTERFACE set) arguments are ignored: a
  // server may pass a query without `=` as arguments, and a visitor must
  // not reach anything but the form's route.
  if (argc > 1 && Env("GATEWAY_INTERFACE").empty()) {
    return AnswerCommandLine(argv[1]);
  }
  // The web server may close the connection early; writing to it must not
  // end the process before the submission is handled.
  signal(SIGPIPE, SIG_IGN);
  try {
    return Run();
  } catch (const std::exception& e) {
    return Fail(e.what());
  }
}
