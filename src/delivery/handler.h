// The form handler: one posted request in, one answer out. The same code
// answers `formwiz serve`'s route and the CGI program formwiz-mail. A
// submission answered with success is committed to the store first.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "delivery/config.h"
#include "delivery/rate_limit.h"
#include "delivery/recipient_policy.h"
#include "delivery/store/store.h"

namespace formwiz::delivery {

struct Request {
  std::string method;                      // "POST", ...
  std::string content_type;                // as sent
  std::optional<uint64_t> content_length;  // when the client gave one
  std::string body;
  std::string client;   // the client's address
  std::string referer;  // the Referer header, "" when none
  std::string accept;   // the Accept header
};

struct Response {
  int status = 200;
  std::string content_type;  // "text/html; charset=utf-8" / JSON
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;  // extra ones
};

class Handler {
 public:
  // `on_queued` runs after a mail is committed to the outbox (the server
  // wakes its delivery worker with it); may be empty. `now` gives Unix time
  // in milliseconds.
  Handler(const Config& config, store::Store& store, RecipientPolicy policy,
          RateLimiter& limiter, std::function<void()> on_queued = {},
          std::function<int64_t()> now_ms = {});

  // The checks that need no body: method, content type, declared length,
  // and the client's rate (a post that passes is counted). A server calls
  // it before reading the body, so that a refused request costs nothing
  // more, and then Handle with `prechecked` true; otherwise Handle runs it.
  std::optional<Response> Precheck(const Request& request);
  Response Handle(const Request& request, bool prechecked = false);

 private:
  const Config& config_;
  store::Store& store_;
  RecipientPolicy policy_;
  RateLimiter& limiter_;
  std::function<void()> on_queued_;
  std::function<int64_t()> now_ms_;
};

// A refused request's answer, as the handler gives it: `message` on the
// page (or in the JSON) titled "Your form was not sent", with a link back
// to the form's page. The programs use it for the refusals that are theirs
// (a body beyond the limit while reading, no configuration).
Response Refusal(const Request& request, int status, std::string message);

// The policy of a configuration: its aliases, addresses and domains.
RecipientPolicy PolicyFromConfig(const Config& config);

}  // namespace formwiz::delivery
