// The store of submissions and their outbox. An interface, so that the
// handler, the delivery worker and the command line do not care which engine
// keeps the rows; SQLite (sqlite_store.h) is the embedded one.
//
// Every method either does all it says or throws StoreError and changes
// nothing: each is one transaction.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "delivery/store/record.h"

namespace formwiz::store {

class StoreError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Add lost the database's answer to its commit and could not learn, within
// its time, whether the row was kept: it may be there, and its mail may go.
class StoreOutcomeUnknown : public StoreError {
 public:
  using StoreError::StoreError;
};

// Which rows List gives; every criterion that is set must hold.
struct Query {
  std::optional<Status> status;
  int64_t received_since = 0;  // Unix time, inclusive; 0: no bound
  int64_t after_id = 0;        // only ids above this, for paging
  int limit = 0;               // 0: all
};

class Store {
 public:
  virtual ~Store() = default;

  // Adds `record` and commits it durably before returning (the caller
  // answers the visitor only after this). Sets and gives record.id.
  // record.key must be unique. StoreError: nothing was kept;
  // StoreOutcomeUnknown: the row may have been kept.
  virtual int64_t Add(SubmissionRecord& record) = 0;

  virtual std::optional<SubmissionRecord> Get(int64_t id) = 0;
  // In id order. The composed messages are left out (message is "") to
  // keep listings small; Get has them.
  virtual std::vector<SubmissionRecord> List(const Query& query) = 0;

  // How many submissions from `client` were received at or after `since`:
  // the rate limit of processes that keep no memory between requests.
  virtual int64_t CountFromClientSince(const std::string& client,
                                       int64_t since) = 0;

  // The outbox. Claims up to `limit` queued mails due at `now` that no live
  // lease holds, leasing each to `owner` until now + lease_seconds, so that
  // no other worker takes them meanwhile; a worker killed mid-send leaves a
  // lease that runs out, and the mail is claimed again. Claimed records come
  // whole (with message).
  virtual std::vector<SubmissionRecord> ClaimDue(const std::string& owner,
                                                 int64_t now, int lease_seconds,
                                                 int limit) = 0;
  // The mail server took the mail: kSent, sent_at = now, attempts + 1,
  // lease dropped.
  // Recorded in one step right after the server's answer. False when
  // `owner` no longer holds the lease (nothing is changed then).
  virtual bool MarkSent(int64_t id, const std::string& owner, int64_t now) = 0;
  // A temporary failure: stays kQueued, attempts + 1, due again at
  // `next_attempt_at`, `detail` says why; lease dropped.
  virtual bool MarkRetry(int64_t id, const std::string& owner,
                         int64_t next_attempt_at,
                         const std::string& detail) = 0;
  // A permanent failure, or attempts ran out: kFailed with `detail`.
  virtual bool MarkFailed(int64_t id, const std::string& owner,
                          const std::string& detail) = 0;

  // Makes mails due now again: queued ones waiting for their next attempt
  // and failed ones (back to kQueued, attempts kept). `id` 0: all of them.
  // Refused and spam submissions have no mail and are left alone. Gives how
  // many were made due.
  virtual int64_t Retry(int64_t id, int64_t now) = 0;

  // Deletes submissions received before `before` (Unix time; 0: any time)
  // whose status is one of `statuses`. A queued mail is never purged unless
  // kQueued is listed. Gives how many were deleted.
  virtual int64_t Purge(const std::vector<Status>& statuses,
                        int64_t before) = 0;
};

}  // namespace formwiz::store
