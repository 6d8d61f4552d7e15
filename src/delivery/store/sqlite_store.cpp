#include "delivery/store/sqlite_store.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <string_view>

namespace formwiz::store {
namespace {

// The schema, one step per version. A step is never edited once released:
// a change is a new step, so that every older file is brought forward by
// running the steps it has not seen, in order, in one transaction.
struct Migration {
  int version;
  const char* sql;
};

constexpr Migration kMigrations[] = {
    {1, R"sql(
CREATE TABLE submissions (
  id INTEGER PRIMARY KEY,
  key TEXT UNIQUE NOT NULL,
  received_at INTEGER NOT NULL,
  page TEXT NOT NULL,
  client TEXT NOT NULL,
  form_index INTEGER NOT NULL,
  subject TEXT NOT NULL,
  send_mode TEXT NOT NULL,
  requested_to TEXT NOT NULL,
  recipient TEXT NOT NULL,
  status TEXT NOT NULL
    CHECK (status IN ('queued', 'sent', 'failed', 'refused', 'spam')),
  detail TEXT NOT NULL,
  message_id TEXT NOT NULL,
  mail_from TEXT NOT NULL,
  message BLOB NOT NULL,
  attempts INTEGER NOT NULL DEFAULT 0,
  next_attempt_at INTEGER NOT NULL DEFAULT 0,
  sent_at INTEGER NOT NULL DEFAULT 0,
  lease_owner TEXT,
  lease_until INTEGER
);
CREATE TABLE fields (
  submission_id INTEGER NOT NULL
    REFERENCES submissions (id) ON DELETE CASCADE,
  position INTEGER NOT NULL,
  name TEXT NOT NULL,
  value TEXT NOT NULL,
  PRIMARY KEY (submission_id, position)
) WITHOUT ROWID;
CREATE INDEX submissions_due ON submissions (status, next_attempt_at);
CREATE INDEX submissions_client ON submissions (client, received_at);
)sql"},
};

constexpr int kLatestVersion = static_cast<int>(std::size(kMigrations));

constexpr bool NumberedInOrder() {
  for (int i = 0; i < kLatestVersion; ++i) {
    if (kMigrations[i].version != i + 1) return false;
  }
  return true;
}
static_assert(NumberedInOrder(), "migrations are numbered 1, 2, 3, ...");

constexpr int kBusyTimeoutMs = 10000;

[[noreturn]] void Fail(sqlite3* db, std::string_view what) {
  throw StoreError("store: " + std::string(what) + ": " +
                   (db != nullptr ? sqlite3_errmsg(db) : "out of memory"));
}

void Exec(sqlite3* db, const char* sql) {
  if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    Fail(db, sql);
  }
}

// One prepared statement. Values are always bound, never pasted into SQL.
class Statement {
 public:
  Statement(sqlite3* db, std::string_view sql) : db_(db) {
    if (sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &stmt_,
                           nullptr) != SQLITE_OK) {
      Fail(db, "prepare");
    }
  }
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& Bind(int index, int64_t value) {
    Check(sqlite3_bind_int64(stmt_, index, value));
    return *this;
  }
  // Text is bound with its length: embedded NULs and any bytes survive.
  Statement& Bind(int index, std::string_view value) {
    Check(sqlite3_bind_text64(stmt_, index, value.data(), value.size(),
                              SQLITE_TRANSIENT, SQLITE_UTF8));
    return *this;
  }
  Statement& BindBlob(int index, std::string_view value) {
    Check(sqlite3_bind_blob64(stmt_, index, value.data(), value.size(),
                              SQLITE_TRANSIENT));
    return *this;
  }
  Statement& BindNull(int index) {
    Check(sqlite3_bind_null(stmt_, index));
    return *this;
  }

  // True while there is a row to read.
  bool Step() {
    int rc = sqlite3_step(stmt_);
    if (rc == SQLITE_ROW) return true;
    if (rc == SQLITE_DONE) return false;
    Fail(db_, sqlite3_sql(stmt_));
  }
  void Run() {
    while (Step()) {
    }
  }
  void Reset() {
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
  }

  int64_t Int(int column) { return sqlite3_column_int64(stmt_, column); }
  // Read as bytes, so that text comes back exactly as it was bound.
  std::string Bytes(int column) {
    const void* data = sqlite3_column_blob(stmt_, column);
    int size = sqlite3_column_bytes(stmt_, column);
    if (data == nullptr || size <= 0) return {};
    return std::string(static_cast<const char*>(data),
                       static_cast<size_t>(size));
  }

 private:
  void Check(int rc) {
    if (rc != SQLITE_OK) Fail(db_, "bind");
  }

  sqlite3* db_;
  sqlite3_stmt* stmt_ = nullptr;
};

// Rolls back unless committed, so that a throw anywhere leaves nothing
// half-done. Writers take the write lock at BEGIN (IMMEDIATE): a deferred
// transaction that reads first and writes later can fail with SQLITE_BUSY
// in a way the busy timeout does not retry.
class Transaction {
 public:
  Transaction(sqlite3* db, bool write) : db_(db) {
    Exec(db, write ? "BEGIN IMMEDIATE" : "BEGIN");
  }
  ~Transaction() {
    if (!done_) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void Commit() {
    Exec(db_, "COMMIT");
    done_ = true;
  }

 private:
  sqlite3* db_;
  bool done_ = false;
};

constexpr std::string_view kColumns =
    "id, key, received_at, page, client, form_index, subject, send_mode, "
    "requested_to, recipient, status, detail, message_id, mail_from, "
    "attempts, next_attempt_at, sent_at, message";

// Reads a row selected with kColumns; `with_message` false when the query
// left the last column out.
SubmissionRecord ReadRecord(Statement& row, bool with_message) {
  SubmissionRecord record;
  record.id = row.Int(0);
  record.key = row.Bytes(1);
  record.received_at = row.Int(2);
  record.page = row.Bytes(3);
  record.client = row.Bytes(4);
  record.form_index = static_cast<int>(row.Int(5));
  record.subject = row.Bytes(6);
  record.send_mode = row.Bytes(7);
  record.requested_to = row.Bytes(8);
  record.recipient = row.Bytes(9);
  std::string status = row.Bytes(10);
  std::optional<Status> known = StatusFromName(status);
  if (!known) throw StoreError("store: unknown status '" + status + "'");
  record.status = *known;
  record.detail = row.Bytes(11);
  record.message_id = row.Bytes(12);
  record.mail_from = row.Bytes(13);
  record.attempts = static_cast<int>(row.Int(14));
  record.next_attempt_at = row.Int(15);
  record.sent_at = row.Int(16);
  if (with_message) record.message = row.Bytes(17);
  return record;
}

std::string SelectRecords(bool with_message, std::string_view where) {
  std::string_view columns = kColumns;
  if (!with_message) columns.remove_suffix(std::strlen(", message"));
  std::string sql = "SELECT ";
  sql += columns;
  sql += " FROM submissions ";
  sql += where;
  return sql;
}

// Fills the fields of each record, in their order.
void ReadFields(sqlite3* db, std::vector<SubmissionRecord>& records) {
  Statement select(db,
                   "SELECT name, value FROM fields WHERE submission_id = ? "
                   "ORDER BY position");
  for (SubmissionRecord& record : records) {
    select.Reset();
    select.Bind(1, record.id);
    while (select.Step()) {
      record.fields.push_back({select.Bytes(0), select.Bytes(1)});
    }
  }
}

std::vector<SubmissionRecord> ReadAll(Statement& select, bool with_message) {
  std::vector<SubmissionRecord> records;
  while (select.Step()) records.push_back(ReadRecord(select, with_message));
  return records;
}

void Migrate(sqlite3* db, const std::string& path) {
  Transaction transaction(db, true);
  Statement read(db, "PRAGMA user_version");
  int version = read.Step() ? static_cast<int>(read.Int(0)) : 0;
  read.Reset();
  if (version > kLatestVersion) {
    throw StoreError("store: " + path + " has schema version " +
                     std::to_string(version) +
                     ", newer than this program knows (" +
                     std::to_string(kLatestVersion) + "); use a newer formwiz");
  }
  if (version == kLatestVersion) return;  // nothing to write: roll back
  for (const Migration& migration : kMigrations) {
    if (migration.version > version) Exec(db, migration.sql);
  }
  // PRAGMA takes no bound values; the number is ours.
  Exec(db, ("PRAGMA user_version = " + std::to_string(kLatestVersion)).c_str());
  transaction.Commit();
}

// The file holds what visitors typed: readable by its owner only. SQLite
// gives the -wal and -shm files the same mode as the database.
void CreateFilePrivate(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) {
    throw StoreError("store: cannot open " + path + ": " +
                     std::strerror(errno));
  }
  ::close(fd);
}

bool Changed(sqlite3* db) { return sqlite3_changes64(db) > 0; }

}  // namespace

SqliteStore::SqliteStore(const std::string& path) {
  CreateFilePrivate(path);
  // The mutex serialises use of the one connection; SQLite's own per-call
  // mutex would only add cost.
  int rc = sqlite3_open_v2(
      path.c_str(), &db_,
      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
      nullptr);
  try {
    if (rc != SQLITE_OK) Fail(db_, "open " + path);
    sqlite3_extended_result_codes(db_, 1);
    sqlite3_busy_timeout(db_, kBusyTimeoutMs);
    Exec(db_, "PRAGMA journal_mode = WAL");
    Exec(db_, "PRAGMA synchronous = FULL");
    Exec(db_, "PRAGMA foreign_keys = ON");
    Migrate(db_, path);
  } catch (...) {
    sqlite3_close_v2(db_);
    db_ = nullptr;
    throw;
  }
}

SqliteStore::~SqliteStore() { sqlite3_close_v2(db_); }

int64_t SqliteStore::Add(SubmissionRecord& record) {
  std::lock_guard lock(mutex_);
  Transaction transaction(db_, true);
  Statement insert(
      db_,
      "INSERT INTO submissions (key, received_at, page, client, form_index, "
      "subject, send_mode, requested_to, recipient, status, detail, "
      "message_id, mail_from, message, attempts, next_attempt_at, sent_at) "
      "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  insert.Bind(1, record.key)
      .Bind(2, record.received_at)
      .Bind(3, record.page)
      .Bind(4, record.client)
      .Bind(5, int64_t{record.form_index})
      .Bind(6, record.subject)
      .Bind(7, record.send_mode)
      .Bind(8, record.requested_to)
      .Bind(9, record.recipient)
      .Bind(10, StatusName(record.status))
      .Bind(11, record.detail)
      .Bind(12, record.message_id)
      .Bind(13, record.mail_from)
      .BindBlob(14, record.message)
      .Bind(15, int64_t{record.attempts})
      .Bind(16, record.next_attempt_at)
      .Bind(17, record.sent_at);
  insert.Run();
  int64_t id = sqlite3_last_insert_rowid(db_);
  Statement field(db_,
                  "INSERT INTO fields (submission_id, position, name, value) "
                  "VALUES (?, ?, ?, ?)");
  int64_t position = 0;
  for (const Field& f : record.fields) {
    field.Reset();
    field.Bind(1, id).Bind(2, position++).Bind(3, f.name).Bind(4, f.value);
    field.Run();
  }
  transaction.Commit();
  record.id = id;
  return id;
}

std::optional<SubmissionRecord> SqliteStore::Get(int64_t id) {
  std::lock_guard lock(mutex_);
  Transaction transaction(db_, false);
  Statement select(db_, SelectRecords(true, "WHERE id = ?"));
  select.Bind(1, id);
  std::vector<SubmissionRecord> records = ReadAll(select, true);
  if (records.empty()) return std::nullopt;
  ReadFields(db_, records);
  transaction.Commit();
  return std::move(records.front());
}

std::vector<SubmissionRecord> SqliteStore::List(const Query& query) {
  std::lock_guard lock(mutex_);
  Transaction transaction(db_, false);
  Statement select(db_, SelectRecords(false,
                                      "WHERE (?1 IS NULL OR status = ?1) "
                                      "AND received_at >= ?2 AND id > ?3 "
                                      "ORDER BY id LIMIT ?4"));
  if (query.status) {
    select.Bind(1, StatusName(*query.status));
  } else {
    select.BindNull(1);
  }
  select.Bind(2, query.received_since)
      .Bind(3, query.after_id)
      .Bind(4, query.limit > 0 ? int64_t{query.limit} : int64_t{-1});
  std::vector<SubmissionRecord> records = ReadAll(select, false);
  ReadFields(db_, records);
  transaction.Commit();
  return records;
}

int64_t SqliteStore::CountFromClientSince(const std::string& client,
                                          int64_t since) {
  std::lock_guard lock(mutex_);
  Statement count(db_,
                  "SELECT count(*) FROM submissions "
                  "WHERE client = ? AND received_at >= ?");
  count.Bind(1, client).Bind(2, since);
  return count.Step() ? count.Int(0) : 0;
}

std::vector<SubmissionRecord> SqliteStore::ClaimDue(const std::string& owner,
                                                    int64_t now,
                                                    int lease_seconds,
                                                    int limit) {
  std::lock_guard lock(mutex_);
  if (limit <= 0) return {};
  // The write lock is taken before the rows are chosen, so two workers
  // (threads or processes) never choose the same row.
  Transaction transaction(db_, true);
  Statement select(
      db_, SelectRecords(true,
                         "WHERE status = 'queued' AND next_attempt_at <= ?1 "
                         "AND (lease_until IS NULL OR lease_until <= ?1) "
                         "ORDER BY next_attempt_at, id LIMIT ?2"));
  select.Bind(1, now).Bind(2, int64_t{limit});
  std::vector<SubmissionRecord> records = ReadAll(select, true);
  Statement lease(db_,
                  "UPDATE submissions SET lease_owner = ?, lease_until = ? "
                  "WHERE id = ?");
  for (const SubmissionRecord& record : records) {
    lease.Reset();
    lease.Bind(1, owner).Bind(2, now + lease_seconds).Bind(3, record.id);
    lease.Run();
  }
  ReadFields(db_, records);
  transaction.Commit();
  return records;
}

bool SqliteStore::MarkSent(int64_t id, const std::string& owner, int64_t now) {
  std::lock_guard lock(mutex_);
  Transaction transaction(db_, true);
  Statement update(db_,
                   "UPDATE submissions SET status = 'sent', sent_at = ?, "
                   "attempts = attempts + 1, "
                   "lease_owner = NULL, lease_until = NULL "
                   "WHERE id = ? AND lease_owner = ? AND status = 'queued'");
  update.Bind(1, now).Bind(2, id).Bind(3, owner);
  update.Run();
  bool changed = Changed(db_);
  transaction.Commit();
  return changed;
}

bool SqliteStore::MarkRetry(int64_t id, const std::string& owner,
                            int64_t next_attempt_at,
                            const std::string& detail) {
  std::lock_guard lock(mutex_);
  Transaction transaction(db_, true);
  Statement update(db_,
                   "UPDATE submissions SET attempts = attempts + 1, "
                   "next_attempt_at = ?, detail = ?, "
                   "lease_owner = NULL, lease_until = NULL "
                   "WHERE id = ? AND lease_owner = ? AND status = 'queued'");
  update.Bind(1, next_attempt_at).Bind(2, detail).Bind(3, id).Bind(4, owner);
  update.Run();
  bool changed = Changed(db_);
  transaction.Commit();
  return changed;
}

bool SqliteStore::MarkFailed(int64_t id, const std::string& owner,
                             const std::string& detail) {
  std::lock_guard lock(mutex_);
  Transaction transaction(db_, true);
  Statement update(db_,
                   "UPDATE submissions SET status = 'failed', "
                   "attempts = attempts + 1, detail = ?, "
                   "lease_owner = NULL, lease_until = NULL "
                   "WHERE id = ? AND lease_owner = ? AND status = 'queued'");
  update.Bind(1, detail).Bind(2, id).Bind(3, owner);
  update.Run();
  bool changed = Changed(db_);
  transaction.Commit();
  return changed;
}

int64_t SqliteStore::Retry(int64_t id, int64_t now) {
  std::lock_guard lock(mutex_);
  Transaction transaction(db_, true);
  // A queued mail already due is left as it is; a leased one keeps its
  // lease, and its worker records the outcome as usual.
  Statement update(db_,
                   "UPDATE submissions SET status = 'queued', "
                   "next_attempt_at = ?1 "
                   "WHERE (?2 = 0 OR id = ?2) AND (status = 'failed' OR "
                   "(status = 'queued' AND next_attempt_at > ?1))");
  update.Bind(1, now).Bind(2, id);
  update.Run();
  int64_t changed = sqlite3_changes64(db_);
  transaction.Commit();
  return changed;
}

int64_t SqliteStore::Purge(const std::vector<Status>& statuses,
                           int64_t before) {
  std::lock_guard lock(mutex_);
  if (statuses.empty()) return 0;
  std::string sql =
      "DELETE FROM submissions WHERE (?1 = 0 OR received_at < ?1)"
      " AND status IN (";
  for (size_t i = 0; i < statuses.size(); ++i) sql += i == 0 ? "?" : ", ?";
  sql += ")";
  Transaction transaction(db_, true);
  Statement remove(db_, sql);
  remove.Bind(1, before);
  int index = 2;
  for (Status status : statuses) remove.Bind(index++, StatusName(status));
  remove.Run();
  int64_t changed = sqlite3_changes64(db_);
  transaction.Commit();
  return changed;
}

std::unique_ptr<Store> OpenDataStore(const std::string& data_dir) {
  if (data_dir.empty()) throw StoreError("store: no data folder given");
  // mkdir -p, each new level private: the folder holds the submissions.
  for (size_t end = 1; end <= data_dir.size(); ++end) {
    if (end != data_dir.size() && data_dir[end] != '/') continue;
    std::string prefix = data_dir.substr(0, end);
    if (::mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST) {
      throw StoreError("store: cannot create " + prefix + ": " +
                       std::strerror(errno));
    }
  }
  struct stat info {};
  if (::stat(data_dir.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    throw StoreError("store: " + data_dir + " is not a folder");
  }
  return std::make_unique<SqliteStore>(data_dir + "/" + SqliteStore::kFileName);
}

}  // namespace formwiz::store
