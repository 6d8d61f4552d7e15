#include <curl/curl.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string_view>

#include "delivery/store/transport.h"

namespace formwiz::store {
namespace {

// The longest server reply kept for the record's detail.
constexpr size_t kMaxReply = 300;

void InitCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

// Envelope addresses go into SMTP command lines: anything that could end
// or bend a command is refused before a byte is sent.
bool SafeEnvelopeAddress(std::string_view address) {
  return address.size() <= 320 &&
         std::none_of(address.begin(), address.end(), [](char c) {
           auto byte = static_cast<unsigned char>(c);
           return byte < 0x20 || byte == 0x7f || c == '<' || c == '>';
         });
}

struct Upload {
  std::string_view rest;
};

size_t ReadMessage(char* buffer, size_t size, size_t count, void* data) {
  auto* upload = static_cast<Upload*>(data);
  size_t n = std::min(size * count, upload->rest.size());
  std::memcpy(buffer, upload->rest.data(), n);
  upload->rest.remove_prefix(n);
  return n;
}

// The server's words, so that a detail says what the server said
// ("550 5.1.1 ...") and not only libcurl's summary. The QUIT that follows a
// refusal has its own answer, hence the last refusal is kept apart.
struct Replies {
  std::string last;   // the last reply other than QUIT's 221
  std::string error;  // the last 4xx or 5xx
};

int KeepReply(CURL*, curl_infotype type, char* data, size_t size,
              void* replies_data) {
  if (type != CURLINFO_HEADER_IN) return 0;
  std::string_view text(data, size);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
    text.remove_suffix(1);
  }
  size_t line_start = text.rfind('\n');
  if (line_start != std::string_view::npos) text.remove_prefix(line_start + 1);
  if (text.empty() || text.starts_with("221")) return 0;
  std::string line;
  for (char c : text.substr(0, kMaxReply)) {
    auto byte = static_cast<unsigned char>(c);
    line.push_back(byte < 0x20 || byte >= 0x7f ? '?' : c);
  }
  auto* replies = static_cast<Replies*>(replies_data);
  if (line[0] == '4' || line[0] == '5') replies->error = line;
  replies->last = std::move(line);
  return 0;
}

long UseSsl(const SmtpSettings& settings) {
  if (settings.starttls == "off") return CURLUSESSL_NONE;
  // "try" goes on in clear when the server offers no STARTTLS, or when
  // someone on the way strips the offer. With a login that would send the
  // password in clear, so a login makes TLS a must; only an explicit "off"
  // logs in without it.
  if (settings.starttls == "try" && settings.user.empty()) {
    return CURLUSESSL_TRY;
  }
  return CURLUSESSL_ALL;  // "required", and anything unknown: the safe side
}

class SmtpTransport : public Transport {
 public:
  explicit SmtpTransport(SmtpSettings settings)
      : settings_(std::move(settings)) {
    InitCurlOnce();
  }

  SendResult Send(const std::string& from,
                  const std::vector<std::string>& recipients,
                  const std::string& message) override {
    if (recipients.empty()) {
      return {SendResult::Kind::kPermanent, "no recipient"};
    }
    if (!SafeEnvelopeAddress(from) ||
        !std::all_of(recipients.begin(), recipients.end(),
                     [](const std::string& a) {
                       return !a.empty() && SafeEnvelopeAddress(a);
                     })) {
      return {SendResult::Kind::kPermanent, "unusable envelope address"};
    }
    CURL* curl = curl_easy_init();
    if (curl == nullptr) {
      return {SendResult::Kind::kTemporary, "libcurl: cannot start"};
    }
    curl_slist* rcpt = nullptr;
    for (const std::string& to : recipients) {
      rcpt = curl_slist_append(rcpt, ("<" + to + ">").c_str());
    }
    std::string mail_from = "<" + from + ">";
    Upload upload{message};
    Replies replies;
    char error[CURL_ERROR_SIZE] = {};
    long timeout = std::max(settings_.timeout_seconds, 1);

    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(curl, CURLOPT_URL, settings_.url.c_str());
    // Only mail is ever spoken, whatever the configured URL says.
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "smtp,smtps");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, timeout);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, timeout);
    curl_easy_setopt(curl, CURLOPT_USE_SSL, UseSsl(settings_));
    if (!settings_.user.empty()) {
      curl_easy_setopt(curl, CURLOPT_USERNAME, settings_.user.c_str());
      curl_easy_setopt(curl, CURLOPT_PASSWORD, settings_.password.c_str());
    }
    curl_easy_setopt(curl, CURLOPT_MAIL_FROM, mail_from.c_str());
    curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, rcpt);
    curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, ReadMessage);
    curl_easy_setopt(curl, CURLOPT_READDATA, &upload);
    curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE,
                     static_cast<curl_off_t>(message.size()));
    // The debug callback is how libcurl shows the server's replies; it
    // runs only when verbose, and prints nothing itself.
    curl_easy_setopt(curl, CURLOPT_DEBUGFUNCTION, KeepReply);
    curl_easy_setopt(curl, CURLOPT_DEBUGDATA, &replies);
    curl_easy_setopt(curl, CURLOPT_VERBOSE, 1L);

    CURLcode code = curl_easy_perform(curl);
    long response = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response);
    curl_slist_free_all(rcpt);
    curl_easy_cleanup(curl);
    return Classify(code, response, error, replies);
  }

 private:
  static SendResult Classify(CURLcode code, long response, const char* error,
                             const Replies& replies) {
    if (code == CURLE_OK) return {SendResult::Kind::kSent, replies.last};
    std::string detail = error[0] != '\0' ? error : curl_easy_strerror(code);
    if (!replies.error.empty()) detail += " (" + replies.error + ")";
    // Only the server's 5xx is final. No connection, a timeout, a 4xx or
    // a local fault (TLS, configuration) may pass, so the mail waits.
    if (response >= 500 && response <= 599) {
      return {SendResult::Kind::kPermanent, detail};
    }
    return {SendResult::Kind::kTemporary, detail};
  }

  SmtpSettings settings_;
};

}  // namespace

std::unique_ptr<Transport> MakeSmtpTransport(const SmtpSettings& settings) {
  return std::make_unique<SmtpTransport>(settings);
}

}  // namespace formwiz::store
