#include "delivery/store/outbox.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <functional>
#include <random>
#include <thread>

namespace formwiz::store {
namespace {

// Records that the mail server took the mail. The mail is out now, so a
// store that fails here (the database restarting) is asked again while the
// lease lasts: giving up would leave the mail queued, and it would go a
// second time once the lease ran out. Asking again is safe: a first attempt
// whose answer was lost made the mail sent, and the next one changes
// nothing.
bool RecordSent(Store& store, const std::string& owner,
                const std::function<int64_t()>& now,
                const std::function<bool()>& keep_going,
                const SubmissionRecord& record, int64_t lease_until) {
  using Steady = std::chrono::steady_clock;
  constexpr auto kPause = std::chrono::milliseconds(250);
  // Bounded by the steady clock as well, for a `now` that stands still.
  const auto give_up = Steady::now() + std::chrono::seconds(std::max<int64_t>(
                                           lease_until - now(), 0));
  for (;;) {
    try {
      return store.MarkSent(record.id, owner, now());
    } catch (const StoreError&) {
      if (!keep_going() || now() >= lease_until || Steady::now() >= give_up) {
        throw;
      }
    }
    std::this_thread::sleep_for(kPause);
  }
}

// One claimed mail: send it and record the outcome in the step right after
// the server's answer, so that the window in which a crash could send it
// twice stays as small as it can be.
void DeliverOne(Store& store, Transport& transport,
                const OutboxSettings& settings, const std::string& owner,
                const std::function<int64_t()>& now,
                const std::function<bool()>& keep_going,
                const SubmissionRecord& record, int64_t lease_until,
                OutboxPass& pass) {
  SendResult result;
  if (record.recipient.empty() || record.message.empty()) {
    result = {SendResult::Kind::kPermanent, "nothing to send"};
  } else {
    result =
        transport.Send(record.mail_from, {record.recipient}, record.message);
  }
  bool held = false;
  switch (result.kind) {
    case SendResult::Kind::kSent:
      held = RecordSent(store, owner, now, keep_going, record, lease_until);
      if (held) ++pass.sent;
      break;
    case SendResult::Kind::kTemporary:
      if (record.attempts + 1 >= settings.max_attempts) {
        held = store.MarkFailed(record.id, owner,
                                "gave up after " +
                                    std::to_string(record.attempts + 1) +
                                    " attempts: " + result.detail);
        if (held) ++pass.failed;
      } else {
        // `attempts` counts the failures before this one, so the first
        // retry waits first_backoff_seconds.
        held = store.MarkRetry(
            record.id, owner, now() + BackoffSeconds(settings, record.attempts),
            result.detail);
        if (held) ++pass.retried;
      }
      break;
    case SendResult::Kind::kPermanent:
      held = store.MarkFailed(record.id, owner, result.detail);
      if (held) ++pass.failed;
      break;
  }
  if (!held) ++pass.lost_lease;
}

}  // namespace

int64_t BackoffSeconds(const OutboxSettings& settings, int attempts) {
  // At least a second, so that a mail that failed is never due again
  // within the same pass.
  int64_t cap = std::max(settings.max_backoff_seconds, 1);
  int64_t delay = std::max(settings.first_backoff_seconds, 1);
  for (int i = 0; i < attempts && delay < cap; ++i) delay *= 2;
  return std::min(delay, cap);
}

OutboxPass DeliverDue(Store& store, Transport& transport,
                      const OutboxSettings& settings, const std::string& owner,
                      const std::function<int64_t()>& now,
                      const std::function<bool()>& keep_going) {
  OutboxPass pass;
  while (keep_going()) {
    const int64_t claimed_at = now();
    std::vector<SubmissionRecord> claimed = store.ClaimDue(
        owner, claimed_at, settings.lease_seconds, std::max(settings.batch, 1));
    if (claimed.empty()) break;
    for (const SubmissionRecord& record : claimed) {
      // Told to stop: the mails still claimed are left to their leases,
      // which run out, and the next worker takes them, as after a crash.
      if (!keep_going()) return pass;
      DeliverOne(store, transport, settings, owner, now, keep_going, record,
                 claimed_at + settings.lease_seconds, pass);
    }
  }
  return pass;
}

std::string WorkerName() {
  char host[HOST_NAME_MAX + 1] = {};
  if (gethostname(host, sizeof host - 1) != 0) host[0] = '\0';
  // The random part keeps names apart across pid reuse and containers
  // that share a database but not a pid namespace.
  std::random_device random;
  uint64_t nonce = (uint64_t{random()} << 32) | random();
  char tail[64];
  std::snprintf(tail, sizeof tail, ":%ld:%zx:%016llx",
                static_cast<long>(getpid()),
                std::hash<std::thread::id>{}(std::this_thread::get_id()),
                static_cast<unsigned long long>(nonce));
  return std::string(host) + tail;
}

}  // namespace formwiz::store
