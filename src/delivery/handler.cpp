#include "delivery/handler.h"

#include <sys/random.h>

#include <chrono>
#include <cstdio>

#include "delivery/address.h"
#include "delivery/answer_page.h"
#include "delivery/form_decode.h"
#include "delivery/mail_message.h"
#include "delivery/posted_form.h"
#include "delivery/text_util.h"

namespace formwiz::delivery {
namespace {

constexpr size_t kMaxPageBytes = 2048;
constexpr size_t kMaxRequestedToBytes = 320;
constexpr const char* kDefaultFrom = "formwiz@localhost";
constexpr const char* kNotSent = "Your form was not sent";
constexpr const char* kThanks = "Thank you. Your form has been sent.";

// 128 random bits from the kernel, as 32 hex digits: the submission's key
// and the left part of its Message-ID.
std::string RandomKey() {
  unsigned char bytes[16];
  size_t got = 0;
  while (got < sizeof bytes) {
    const ssize_t n = getrandom(bytes + got, sizeof bytes - got, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      throw store::StoreError("no random numbers for a submission key");
    }
    got += static_cast<size_t>(n);
  }
  std::string key;
  for (unsigned char b : bytes) {
    char hex[3];
    std::snprintf(hex, sizeof hex, "%02x", b);
    key += hex;
  }
  return key;
}

int64_t SystemNowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace

Handler::Handler(const Config& config, store::Store& store,
                 RecipientPolicy policy, RateLimiter& limiter,
                 std::function<void()> on_queued,
                 std::function<int64_t()> now_ms)
    : config_(config),
      store_(store),
      policy_(std::move(policy)),
      limiter_(limiter),
      on_queued_(std::move(on_queued)),
      now_ms_(now_ms ? std::move(now_ms) : SystemNowMs) {}

namespace {

// Every answer goes through here: JSON or HTML as the client asked, never
// kept by a cache (it tells about one submission).
Response MakeResponse(const Request& request, int status, Answer answer) {
  Response response;
  response.status = status;
  answer.back_link = SafeBackLink(request.referer);
  if (WantsJson(request.accept)) {
    response.content_type = "application/json";
    response.body = AnswerJson(answer);
  } else {
    response.content_type = "text/html; charset=utf-8";
    response.body = AnswerHtml(answer);
  }
  response.headers.emplace_back("Cache-Control", "no-store");
  return response;
}

}  // namespace

Response Refusal(const Request& request, int status, std::string message) {
  Answer answer;
  answer.title = kNotSent;
  answer.message = std::move(message);
  return MakeResponse(request, status, std::move(answer));
}

namespace {

Response StoreFailure(const Request& request) {
  Response response = Refusal(
      request, 503,
      "The server could not keep your entries just now, so nothing was sent. "
      "Please try again in a few minutes.");
  response.headers.emplace_back("Retry-After", "60");
  return response;
}

// The database took the commit but its answer was lost, and it could not be
// asked again in time: the entries may have been kept, and then they are
// mailed. Not 503, which promises that nothing was kept; 504, as a gateway
// that got no answer from the server behind it.
Response OutcomeUnknown(const Request& request) {
  Response response = Refusal(
      request, 504,
      "The server lost touch with its database while keeping your entries, "
      "so it cannot tell whether they were kept. If you hear nothing back, "
      "please send the form again later.");
  response.headers.emplace_back("Retry-After", "60");
  return response;
}

}  // namespace

std::optional<Response> Handler::Precheck(const Request& request) {
  if (request.method != "POST") {
    Response response =
        Refusal(request, 405, "This address only takes forms sent with POST.");
    response.headers.emplace_back("Allow", "POST");
    return response;
  }
  if (!IsUrlEncoded(request.content_type)) {
    return Refusal(request, 415,
                   "This address only takes forms sent as "
                   "application/x-www-form-urlencoded in UTF-8.");
  }
  if (request.content_length &&
      *request.content_length > config_.limits.max_body) {
    return Refusal(request, 413,
                   "The form sent more data than this server takes.");
  }
  try {
    if (!limiter_.Allow(request.client, now_ms_())) {
      Response response = Refusal(
          request, 429,
          "Too many forms were sent from your address. Please wait a minute "
          "and try again.");
      response.headers.emplace_back("Retry-After", "60");
      return response;
    }
  } catch (const store::StoreError&) {
    return StoreFailure(request);
  }
  return std::nullopt;
}

Response Handler::Handle(const Request& request, bool prechecked) {
  if (!prechecked) {
    if (std::optional<Response> refused = Precheck(request)) return *refused;
  }
  const Decoded decoded = DecodeUrlEncoded(request.body, config_.limits);
  if (!decoded.ok) return Refusal(request, decoded.status, decoded.error);
  bool from_formwiz = false;
  for (const store::Field& pair : decoded.pairs) {
    if (pair.name == "qln_EmailTo") from_formwiz = true;
  }
  if (!from_formwiz) {
    return Refusal(request, 400,
                   "This is not a form made by formwiz: it names no "
                   "recipient (qln_EmailTo).");
  }
  const PostedForm form = ReadPostedForm(decoded.pairs);
  // qln_SortOrder can name fields that were not posted; they count too.
  if (form.fields.size() > config_.limits.max_fields) {
    return Refusal(request, 413,
                   "The form sent more fields than this server takes.");
  }

  store::SubmissionRecord record;
  record.received_at = now_ms_() / 1000;
  record.page =
      text::CutUtf8(text::StripControls(request.referer), kMaxPageBytes);
  record.client = request.client;
  record.form_index = form.form_index;
  record.subject = CleanSubject(form.subject, config_.default_subject);
  record.send_mode = form.send_mode;
  record.requested_to =
      text::CutUtf8(text::StripControls(form.email_to), kMaxRequestedToBytes);
  record.fields = form.fields;
  record.mail_from = config_.from.empty() ? kDefaultFrom : config_.from;

  Answer answer;
  std::string reason;
  std::optional<std::string> recipient;
  try {
    record.key = RandomKey();
    if (form.honeypot_filled) {
      // Kept, never mailed, and answered as any accepted post: a robot
      // learns nothing from the answer.
      record.status = store::Status::kSpam;
      record.detail =
          "the hidden field " + std::string(kHoneypotField) + " was filled in";
      store_.Add(record);
    } else if (!(recipient = policy_.Resolve(form.email_to, reason))) {
      record.status = store::Status::kRefused;
      record.detail = reason;
      store_.Add(record);
      answer.title = kNotSent;
      answer.message =
          "This form cannot be delivered: its recipient is not allowed on "
          "this server. Your entries were kept for the site's owner.";
      answer.id = record.id;
      return MakeResponse(request, 403, std::move(answer));
    } else {
      const std::string domain = AddressDomain(config_.from);
      record.recipient = *recipient;
      record.message_id = "<" + record.key + "@" +
                          (domain.empty() ? "formwiz.invalid" : domain) + ">";
      MailInput mail;
      mail.from = record.mail_from;
      mail.to = record.recipient;
      mail.subject = form.subject;
      mail.default_subject = config_.default_subject;
      mail.comma_separated = form.send_mode == "2";
      mail.fields = record.fields;
      mail.page = record.page;
      mail.client = record.client;
      mail.received_at = record.received_at;
      mail.message_id = record.message_id;
      record.message = ComposeMail(mail);
      record.status = store::Status::kQueued;
      record.next_attempt_at = record.received_at;
      store_.Add(record);
      if (on_queued_) on_queued_();
    }
  } catch (const store::StoreOutcomeUnknown&) {
    return OutcomeUnknown(request);
  } catch (const store::StoreError&) {
    return StoreFailure(request);
  }
  answer.ok = true;
  answer.title = "Thank you";
  answer.message = form.ok_message.empty() ? kThanks : form.ok_message;
  answer.id = record.id;
  return MakeResponse(request, 200, std::move(answer));
}

RecipientPolicy PolicyFromConfig(const Config& config) {
  RecipientPolicy policy;
  for (const auto& [alias, address] : config.aliases) {
    policy.AddAlias(alias, address);
  }
  for (const std::string& address : config.allow_addresses) {
    policy.AllowAddress(address);
  }
  for (const std::string& domain : config.allow_domains) {
    policy.AllowDomain(domain);
  }
  return policy;
}

}  // namespace formwiz::delivery
