// The embedded store: one SQLite database file in WAL mode, synchronous=FULL,
// so that a submission Add returned for survives a crash of the process or
// of the machine. The schema is created and upgraded by numbered migrations
// at open (PRAGMA user_version). Safe to use from several threads (one
// connection behind a mutex) and from several processes (SQLite's locks,
// with a busy timeout).
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "delivery/store/store.h"

struct sqlite3;

namespace formwiz::store {

class SqliteStore : public Store {
 public:
  // Opens or creates the database at `path` (its folder must exist) and
  // brings its schema up to date. Throws StoreError.
  explicit SqliteStore(const std::string& path);
  ~SqliteStore() override;
  SqliteStore(const SqliteStore&) = delete;
  SqliteStore& operator=(const SqliteStore&) = delete;

  // The database file's name inside a data folder.
  static constexpr const char* kFileName = "submissions.sqlite3";

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
  sqlite3* db_ = nullptr;
  std::mutex mutex_;
};

// Opens the store of a data folder, creating the folder (mode 0700) when it
// is missing. Throws StoreError.
std::unique_ptr<Store> OpenDataStore(const std::string& data_dir);

}  // namespace formwiz::store
