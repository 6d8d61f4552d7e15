// The shared store: one PostgreSQL database that several handler and
// delivery processes, on several machines, use at once. Each method is one
// transaction on the server; Add returns after the commit is durable (the
// session keeps synchronous_commit on). Workers claim due mails with
// SELECT ... FOR UPDATE SKIP LOCKED, so that two never take the same one and
// none waits on another's rows.
//
// The schema is created and upgraded by numbered migrations at open,
// recorded in schema_migrations, under an advisory lock so that processes
// starting together migrate once. Safe to use from several threads: each
// call takes a connection of a small pool, so that the commits of
// concurrent calls wait for the disk together rather than one by one. A broken
// connection (the server restarted, the network dropped) fails the call in
// progress with StoreError and is opened again by the next call; only Add,
// whose caller must know whether the row was kept, opens it again itself when
// the commit's answer was lost.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "delivery/store/store.h"

struct pg_conn;

namespace formwiz::store {

class PostgresStore : public Store {
 public:
  // Connects with `conninfo` (a postgresql:// URL or libpq's
  // "key=value ..." string) and brings the schema up to date. Throws
  // StoreError.
  // At most `connections` are open at once, each opened when concurrent
  // calls first need it.
  explicit PostgresStore(const std::string& conninfo,
                         int connections = kDefaultConnections);
  ~PostgresStore() override;
  PostgresStore(const PostgresStore&) = delete;
  PostgresStore& operator=(const PostgresStore&) = delete;

  // Enough for a handler's concurrent commits to share the server's
  // flushes of its log, few enough for many processes on one server.
  static constexpr int kDefaultConnections = 4;

  // True when `url` names a PostgreSQL database rather than a file.
  static bool IsConnectionString(const std::string& url);

  int64_t Add(SubmissionRecord& record) override;
  std::optional<SubmissionRecord> Get(int64_t id) override;
  std::vector<SubmissionRecord> List(const Query& query) override;
  int64_t CountFromClientSince(const std::string& client,
                               int64_t since) override;
  std::vector<SubmissionRecord> ClaimDue(const std::string& owner, int64_t now,
                                         int lease_seconds, int limit) override;
  bool MarkSent(int64_t id, const std::string& owner, int64_t now) override;
  bool MarkRetry(int64_t id, const std::string& owner, int64_t next_attempt_at,
                 const std::string& detail) override;
  bool MarkFailed(int64_t id, const std::string& owner,
                  const std::string& detail) override;
  int64_t Retry(int64_t id, int64_t now) override;
  int64_t Purge(const std::vector<Status>& statuses, int64_t before) override;

 private:
  // A connection taken from the pool, given back when this goes.
  class Pooled {
   public:
    Pooled(PostgresStore& store, pg_conn* conn) : store_(store), conn_(conn) {}
    ~Pooled();
    Pooled(Pooled&& other) noexcept
        : store_(other.store_), conn_(std::exchange(other.conn_, nullptr)) {}
    Pooled(const Pooled&) = delete;
    Pooled& operator=(const Pooled&) = delete;
    pg_conn* get() const { return conn_; }

   private:
    PostgresStore& store_;
    pg_conn* conn_;
  };

  // Opens a connection and sets its session up. Throws StoreError.
  pg_conn* Connect() const;
  // An idle connection, a new one while fewer than max_connections_ are
  // open, or else the first one given back.
  Pooled Take();
  // Begins a transaction on `conn`, opening it again first when it broke;
  // gives the connection.
  pg_conn* Begin(pg_conn* conn);
  // One attempt at Add; `again` after an attempt whose outcome is unknown.
  int64_t AddOnce(pg_conn* conn, SubmissionRecord& record, bool again);

  // How long Add keeps asking after a lost commit (a restart of the server
  // takes a few seconds), and how often.
  static constexpr std::chrono::seconds kResolveTime{15};
  static constexpr std::chrono::milliseconds kResolvePause{250};

  const std::string conninfo_;
  const int max_connections_;
  std::mutex mutex_;  // guards idle_ and open_
  std::condition_variable returned_;
  std::vector<pg_conn*> idle_;
  int open_ = 0;
};

}  // namespace formwiz::store
