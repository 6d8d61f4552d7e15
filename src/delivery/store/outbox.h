// The delivery worker's one step: claim the mails that are due, send each,
// and record the outcome, with back-off for temporary failures.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "delivery/store/store.h"
#include "delivery/store/transport.h"

namespace formwiz::store {

struct OutboxSettings {
  int lease_seconds = 120;  // longer than a transport's whole timeout
  int batch = 16;           // mails claimed at once
  int max_attempts = 20;    // then the mail is kFailed (retry brings it back)
  int first_backoff_seconds = 30;  // doubled per attempt...
  int max_backoff_seconds = 3600;  // ...up to this
};

// The delay before attempt `attempts + 1` after `attempts` failed ones.
int64_t BackoffSeconds(const OutboxSettings& settings, int attempts);

struct OutboxPass {
  int sent = 0;
  int retried = 0;
  int failed = 0;
  int lost_lease = 0;  // another worker took the mail meanwhile
};

// Claims due mails as `owner` and sends them until none is due or `batch`
// claims came back empty, or `keep_going` says stop. `now` gives the time
// (tests pass their own clock).
OutboxPass DeliverDue(Store& store, Transport& transport,
                      const OutboxSettings& settings, const std::string& owner,
                      const std::function<int64_t()>& now,
                      const std::function<bool()>& keep_going);

// A name unique to this process and thread, for leases.
std::string WorkerName();

}  // namespace formwiz::store
