#include "delivery/store/postgres_store.h"

#include <endian.h>
#include <libpq-fe.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <optional>
#include <string_view>
#include <thread>

namespace formwiz::store {
namespace {

// The schema, one step per version, as for the SQLite store. Every text the
// visitor or a mail server gave is bytea: PostgreSQL's text refuses NUL and
// invalid UTF-8, and the store gives back exactly the bytes it was given.
struct Migration {
  int version;
  const char* sql;
};

constexpr Migration kMigrations[] = {
    {1, R"sql(
CREATE TABLE submissions (
  id BIGINT GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
  key BYTEA UNIQUE NOT NULL,
  received_at BIGINT NOT NULL,
  page BYTEA NOT NULL,
  client BYTEA NOT NULL,
  form_index BIGINT NOT NULL,
  subject BYTEA NOT NULL,
  send_mode BYTEA NOT NULL,
  requested_to BYTEA NOT NULL,
  recipient BYTEA NOT NULL,
  status TEXT NOT NULL
    CHECK (status IN ('queued', 'sent', 'failed', 'refused', 'spam')),
  detail BYTEA NOT NULL,
  message_id BYTEA NOT NULL,
  mail_from BYTEA NOT NULL,
  message BYTEA NOT NULL,
  attempts BIGINT NOT NULL DEFAULT 0,
  next_attempt_at BIGINT NOT NULL DEFAULT 0,
  sent_at BIGINT NOT NULL DEFAULT 0,
  lease_owner BYTEA,
  lease_until BIGINT
);
CREATE TABLE fields (
  submission_id BIGINT NOT NULL
    REFERENCES submissions (id) ON DELETE CASCADE,
  position BIGINT NOT NULL,
  name BYTEA NOT NULL,
  value BYTEA NOT NULL,
  PRIMARY KEY (submission_id, position)
);
CREATE INDEX submissions_due ON submissions (next_attempt_at, id)
  WHERE status = 'queued';
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

// Taken for the length of the migrating transaction: a second process that
// starts meanwhile waits, then finds the schema current. The number spells
// "formwiz" in ASCII, so that another program's locks are unlikely to meet
// it.
constexpr const char* kMigrationLock =
    "SELECT pg_advisory_xact_lock(28832984877984122)";

std::string Trimmed(const char* message) {
  std::string text = message != nullptr ? message : "";
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
    text.pop_back();
  }
  return text;
}

[[noreturn]] void Fail(PGconn* conn, std::string_view what) {
  throw StoreError("store: " + std::string(what) + ": " +
                   Trimmed(PQerrorMessage(conn)));
}

// Parameters of one statement. Numbers and names go as text; bytes go in
// binary, so that any byte survives without escaping. Values are always
// passed apart from the SQL, never pasted into it.
class Params {
 public:
  Params& Int(int64_t value) { return Add(std::to_string(value), 0); }
  Params& Text(std::string_view value) { return Add(std::string(value), 0); }
  Params& Bytes(std::string_view value) { return Add(std::string(value), 1); }
  Params& Null() {
    values_.push_back(std::nullopt);
    formats_.push_back(0);
    return *this;
  }

  int size() const { return static_cast<int>(values_.size()); }
  std::vector<const char*> Values() const {
    std::vector<const char*> pointers;
    for (const auto& value : values_) {
      pointers.push_back(value ? value->data() : nullptr);
    }
    return pointers;
  }
  std::vector<int> Lengths() const {
    std::vector<int> lengths;
    for (const auto& value : values_) {
      lengths.push_back(value ? static_cast<int>(value->size()) : 0);
    }
    return lengths;
  }
  const std::vector<int>& Formats() const { return formats_; }

 private:
  Params& Add(std::string value, int format) {
    values_.push_back(std::move(value));
    formats_.push_back(format);
    return *this;
  }

  std::vector<std::optional<std::string>> values_;
  std::vector<int> formats_;
};

// One result, read in binary: every number column is BIGINT (8 bytes,
// network order) and every other column is taken as bytes.
class Result {
 public:
  explicit Result(PGresult* result) : result_(result) {}
  ~Result() { PQclear(result_); }
  Result(const Result&) = delete;
  Result& operator=(const Result&) = delete;

  int Rows() const { return PQntuples(result_); }
  int64_t Changed() const { return std::atoll(PQcmdTuples(result_)); }
  int64_t Int(int row, int column) const {
    if (PQgetisnull(result_, row, column)) return 0;
    if (PQgetlength(result_, row, column) != 8) {
      throw StoreError("store: unexpected column type in " +
                       std::string(PQfname(result_, column)));
    }
    uint64_t value;
    std::memcpy(&value, PQgetvalue(result_, row, column), sizeof value);
    return static_cast<int64_t>(be64toh(value));
  }
  std::string Bytes(int row, int column) const {
    return std::string(PQgetvalue(result_, row, column),
                       static_cast<size_t>(PQgetlength(result_, row, column)));
  }

 private:
  PGresult* result_;
};

Result Exec(PGconn* conn, const std::string& sql, const Params& params = {}) {
  std::vector<const char*> values = params.Values();
  std::vector<int> lengths = params.Lengths();
  PGresult* result =
      PQexecParams(conn, sql.c_str(), params.size(), nullptr, values.data(),
                   lengths.data(), params.Formats().data(), 1);
  ExecStatusType status = PQresultStatus(result);
  if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
    std::string message =
        Trimmed(result != nullptr ? PQresultErrorMessage(result)
                                  : PQerrorMessage(conn));
    PQclear(result);
    throw StoreError("store: " + message);
  }
  return Result(result);
}

class CommitLost : public StoreError {
 public:
  using StoreError::StoreError;
};

// Rolls back unless committed, so that a throw anywhere leaves nothing
// half-done. Begun by PostgresStore::Begin.
class Transaction {
 public:
  explicit Transaction(PGconn* conn) : conn_(conn) {}
  ~Transaction() {
    if (!done_ && PQstatus(conn_) == CONNECTION_OK) {
      PQclear(PQexec(conn_, "ROLLBACK"));
    }
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  // Throws CommitLost when the connection broke before the server's answer
  // came: the commit may or may not have happened.
  void Commit() {
    try {
      Exec(conn_, "COMMIT");
    } catch (const StoreError& e) {
      if (PQstatus(conn_) != CONNECTION_OK) throw CommitLost(e.what());
      throw;
    }
    done_ = true;
  }

 private:
  PGconn* conn_;
  bool done_ = false;
};

constexpr std::string_view kColumns =
    "id, key, received_at, page, client, form_index, subject, send_mode, "
    "requested_to, recipient, status, detail, message_id, mail_from, "
    "attempts, next_attempt_at, sent_at, message";

std::string Columns(bool with_message) {
  std::string_view columns = kColumns;
  if (!with_message) columns.remove_suffix(std::strlen(", message"));
  return std::string(columns);
}

std::vector<SubmissionRecord> ReadRecords(const Result& rows,
                                          bool with_message) {
  std::vector<SubmissionRecord> records;
  for (int i = 0; i < rows.Rows(); ++i) {
    SubmissionRecord record;
    record.id = rows.Int(i, 0);
    record.key = rows.Bytes(i, 1);
    record.received_at = rows.Int(i, 2);
    record.page = rows.Bytes(i, 3);
    record.client = rows.Bytes(i, 4);
    record.form_index = static_cast<int>(rows.Int(i, 5));
    record.subject = rows.Bytes(i, 6);
    record.send_mode = rows.Bytes(i, 7);
    record.requested_to = rows.Bytes(i, 8);
    record.recipient = rows.Bytes(i, 9);
    std::string status = rows.Bytes(i, 10);
    std::optional<Status> known = StatusFromName(status);
    if (!known) throw StoreError("store: unknown status '" + status + "'");
    record.status = *known;
    record.detail = rows.Bytes(i, 11);
    record.message_id = rows.Bytes(i, 12);
    record.mail_from = rows.Bytes(i, 13);
    record.attempts = static_cast<int>(rows.Int(i, 14));
    record.next_attempt_at = rows.Int(i, 15);
    record.sent_at = rows.Int(i, 16);
    if (with_message) record.message = rows.Bytes(i, 17);
    records.push_back(std::move(record));
  }
  return records;
}

// Fills the fields of each record, in their order, with one query.
void ReadFields(PGconn* conn, std::vector<SubmissionRecord>& records) {
  if (records.empty()) return;
  std::string ids = "{";
  std::map<int64_t, SubmissionRecord*> by_id;
  for (SubmissionRecord& record : records) {
    if (ids.size() > 1) ids += ",";
    ids += std::to_string(record.id);
    by_id[record.id] = &record;
  }
  ids += "}";
  Result rows = Exec(conn,
                     "SELECT submission_id, name, value FROM fields "
                     "WHERE submission_id = ANY($1::bigint[]) "
                     "ORDER BY submission_id, position",
                     Params().Text(ids));
  for (int i = 0; i < rows.Rows(); ++i) {
    by_id.at(rows.Int(i, 0))
        ->fields.push_back({rows.Bytes(i, 1), rows.Bytes(i, 2)});
  }
}

void Migrate(PGconn* conn) {
  Exec(conn, "BEGIN");
  Transaction transaction(conn);
  Exec(conn, kMigrationLock);
  Exec(conn,
       "CREATE TABLE IF NOT EXISTS schema_migrations ("
       "version BIGINT PRIMARY KEY, "
       "applied_at TIMESTAMPTZ NOT NULL DEFAULT now())");
  int64_t version = Exec(conn,
                         "SELECT coalesce(max(version), 0)::bigint "
                         "FROM schema_migrations")
                        .Int(0, 0);
  if (version > kLatestVersion) {
    throw StoreError("store: the database has schema version " +
                     std::to_string(version) +
                     ", newer than this program knows (" +
                     std::to_string(kLatestVersion) + "); use a newer formwiz");
  }
  for (const Migration& migration : kMigrations) {
    if (migration.version <= version) continue;
    // Several statements in one step: the simple protocol runs them all.
    PGresult* result = PQexec(conn, migration.sql);
    bool ok = PQresultStatus(result) == PGRES_COMMAND_OK;
    std::string message = Trimmed(PQresultErrorMessage(result));
    PQclear(result);
    if (!ok) {
      throw StoreError("store: migration " + std::to_string(migration.version) +
                       ": " + message);
    }
    Exec(conn, "INSERT INTO schema_migrations (version) VALUES ($1)",
         Params().Int(migration.version));
  }
  transaction.Commit();
}

// The session's settings, after every (re)connection: a commit returns
// only once it is on disk, whatever the server's default.
void SetUpSession(PGconn* conn) { Exec(conn, "SET synchronous_commit = on"); }

void IgnoreNotice(void*, const char*) {}

}  // namespace

bool PostgresStore::IsConnectionString(const std::string& url) {
  return url.starts_with("postgresql://") || url.starts_with("postgres://") ||
         url.find('=') != std::string::npos;
}

PostgresStore::PostgresStore(const std::string& conninfo, int connections)
    : conninfo_(conninfo), max_connections_(std::max(connections, 1)) {
  PGconn* conn = Connect();
  try {
    Migrate(conn);
  } catch (...) {
    PQfinish(conn);
    throw;
  }
  idle_.push_back(conn);
  open_ = 1;
}

PostgresStore::~PostgresStore() {
  for (PGconn* conn : idle_) PQfinish(conn);
}

pg_conn* PostgresStore::Connect() const {
  // Options in the string override the defaults before it.
  const char* keywords[] = {"connect_timeout", "application_name", "dbname",
                            nullptr};
  const char* values[] = {"10", "formwiz", conninfo_.c_str(), nullptr};
  PGconn* conn = PQconnectdbParams(keywords, values, 1);
  if (conn == nullptr) throw StoreError("store: out of memory");
  try {
    if (PQstatus(conn) != CONNECTION_OK) Fail(conn, "cannot connect");
    // CREATE ... IF NOT EXISTS and the like send notices; they are not
    // for the person running the program.
    PQsetNoticeProcessor(conn, IgnoreNotice, nullptr);
    SetUpSession(conn);
  } catch (...) {
    PQfinish(conn);
    throw;
  }
  return conn;
}

PostgresStore::Pooled::~Pooled() {
  if (conn_ == nullptr) return;
  {
    std::lock_guard lock(store_.mutex_);
    store_.idle_.push_back(conn_);
  }
  store_.returned_.notify_one();
}

PostgresStore::Pooled PostgresStore::Take() {
  std::unique_lock lock(mutex_);
  returned_.wait(lock,
                 [this] { return !idle_.empty() || open_ < max_connections_; });
  if (!idle_.empty()) {
    PGconn* conn = idle_.back();
    idle_.pop_back();
    return Pooled(*this, conn);
  }
  // Opened outside the lock: connecting may take a while, and the other
  // connections stay usable meanwhile.
  ++open_;
  lock.unlock();
  try {
    return Pooled(*this, Connect());
  } catch (...) {
    lock.lock();
    --open_;
    lock.unlock();
    returned_.notify_one();
    throw;
  }
}

pg_conn* PostgresStore::Begin(pg_conn* conn) {
  for (int attempt = 0;; ++attempt) {
    if (PQstatus(conn) != CONNECTION_OK) {
      PQreset(conn);
      if (PQstatus(conn) != CONNECTION_OK) Fail(conn, "cannot connect");
      SetUpSession(conn);
    }
    PGresult* result = PQexec(conn, "BEGIN");
    bool ok = PQresultStatus(result) == PGRES_COMMAND_OK;
    PQclear(result);
    if (ok) return conn;
    // A connection that broke while idle (the server restarted) is only
    // noticed here, before anything of this call was sent: opening it again
    // and beginning once more is safe.
    if (attempt > 0 || PQstatus(conn) == CONNECTION_OK) Fail(conn, "BEGIN");
  }
}

int64_t PostgresStore::Add(SubmissionRecord& record) {
  Pooled pooled = Take();
  // A commit whose answer was lost (the server restarted under it) may have
  // happened or not. The key is unique, so the same insert runs again until
  // the database answers: it finds the row the first commit kept, or keeps
  // it now. A first transaction that the server has not finished yet holds
  // the key, and the second insert waits for its outcome.
  const auto give_up = std::chrono::steady_clock::now() + kResolveTime;
  bool unsure = false;
  for (;;) {
    try {
      return AddOnce(pooled.get(), record, unsure);
    } catch (const StoreError& e) {
      const bool lost = dynamic_cast<const CommitLost*>(&e) != nullptr;
      if (!unsure && !lost) throw;  // nothing was kept
      unsure = true;
      if (std::chrono::steady_clock::now() >= give_up) {
        throw StoreOutcomeUnknown(e.what());
      }
    }
    std::this_thread::sleep_for(kResolvePause);
  }
}

int64_t PostgresStore::AddOnce(pg_conn* conn, SubmissionRecord& record,
                               bool again) {
  Transaction transaction(Begin(conn));
  Result inserted = Exec(
      conn,
      "INSERT INTO submissions (key, received_at, page, client, form_index, "
      "subject, send_mode, requested_to, recipient, status, detail, "
      "message_id, mail_from, message, attempts, next_attempt_at, sent_at) "
      "VALUES ($1, $2, $3, $4, $5, $6, $7, $8, $9, $10, $11, $12, $13, $14, "
      "$15, $16, $17) ON CONFLICT (key) DO NOTHING RETURNING id",
      Params()
          .Bytes(record.key)
          .Int(record.received_at)
          .Bytes(record.page)
          .Bytes(record.client)
          .Int(record.form_index)
          .Bytes(record.subject)
          .Bytes(record.send_mode)
          .Bytes(record.requested_to)
          .Bytes(record.recipient)
          .Text(StatusName(record.status))
          .Bytes(record.detail)
          .Bytes(record.message_id)
          .Bytes(record.mail_from)
          .Bytes(record.message)
          .Int(record.attempts)
          .Int(record.next_attempt_at)
          .Int(record.sent_at));
  if (inserted.Rows() == 0) {
    if (!again) throw StoreError("store: a submission with this key exists");
    // The lost commit kept it, fields and all (one transaction).
    Result kept = Exec(conn, "SELECT id FROM submissions WHERE key = $1",
                       Params().Bytes(record.key));
    record.id = kept.Int(0, 0);
    transaction.Commit();
    return record.id;
  }
  int64_t id = inserted.Int(0, 0);
  int64_t position = 0;
  for (const Field& field : record.fields) {
    Exec(conn,
         "INSERT INTO fields (submission_id, position, name, value) "
         "VALUES ($1, $2, $3, $4)",
         Params().Int(id).Int(position++).Bytes(field.name).Bytes(field.value));
  }
  transaction.Commit();
  record.id = id;
  return id;
}

std::optional<SubmissionRecord> PostgresStore::Get(int64_t id) {
  Pooled pooled = Take();
  PGconn* conn = pooled.get();
  Transaction transaction(Begin(conn));
  std::vector<SubmissionRecord> records = ReadRecords(
      Exec(conn, "SELECT " + Columns(true) + " FROM submissions WHERE id = $1",
           Params().Int(id)),
      true);
  if (records.empty()) return std::nullopt;
  ReadFields(conn, records);
  transaction.Commit();
  return std::move(records.front());
}

std::vector<SubmissionRecord> PostgresStore::List(const Query& query) {
  Pooled pooled = Take();
  PGconn* conn = pooled.get();
  Transaction transaction(Begin(conn));
  Params params;
  if (query.status) {
    params.Text(StatusName(*query.status));
  } else {
    params.Null();
  }
  params.Int(query.received_since).Int(query.after_id);
  if (query.limit > 0) {
    params.Int(query.limit);
  } else {
    params.Null();  // LIMIT NULL: no limit
  }
  std::vector<SubmissionRecord> records = ReadRecords(
      Exec(conn,
           "SELECT " + Columns(false) +
               " FROM submissions WHERE ($1::text IS NULL OR status = $1) "
               "AND received_at >= $2 AND id > $3 ORDER BY id LIMIT $4",
           params),
      false);
  ReadFields(conn, records);
  transaction.Commit();
  return records;
}

int64_t PostgresStore::CountFromClientSince(const std::string& client,
                                            int64_t since) {
  Pooled pooled = Take();
  PGconn* conn = pooled.get();
  Transaction transaction(Begin(conn));
  int64_t count = Exec(conn,
                       "SELECT count(*) FROM submissions "
                       "WHERE client = $1 AND received_at >= $2",
                       Params().Bytes(client).Int(since))
                      .Int(0, 0);
  transaction.Commit();
  return count;
}

std::vector<SubmissionRecord> PostgresStore::ClaimDue(const std::string& owner,
                                                      int64_t now,
                                                      int lease_seconds,
                                                      int limit) {
  if (limit <= 0) return {};
  Pooled pooled = Take();
  PGconn* conn = pooled.get();
  Transaction transaction(Begin(conn));
  // The due rows are locked as they are chosen, skipping those another
  // worker has locked this moment, and leased in the same statement: two
  // workers never choose the same row, and neither waits for the other.
  std::vector<SubmissionRecord> records = ReadRecords(
      Exec(conn,
           "WITH due AS (SELECT id FROM submissions "
           "WHERE status = 'queued' AND next_attempt_at <= $1 "
           "AND (lease_until IS NULL OR lease_until <= $1) "
           "ORDER BY next_attempt_at, id LIMIT $2 FOR UPDATE SKIP LOCKED) "
           "UPDATE submissions SET lease_owner = $3, lease_until = $4 "
           "WHERE id IN (SELECT id FROM due) RETURNING " +
               Columns(true),
           Params().Int(now).Int(limit).Bytes(owner).Int(now + lease_seconds)),
      true);
  // RETURNING keeps no order.
  std::sort(records.begin(), records.end(),
            [](const SubmissionRecord& a, const SubmissionRecord& b) {
              return std::pair(a.next_attempt_at, a.id) <
                     std::pair(b.next_attempt_at, b.id);
            });
  ReadFields(conn, records);
  transaction.Commit();
  return records;
}

bool PostgresStore::MarkSent(int64_t id, const std::string& owner,
                             int64_t now) {
  Pooled pooled = Take();
  PGconn* conn = pooled.get();
  Transaction transaction(Begin(conn));
  int64_t changed =
      Exec(conn,
           "UPDATE submissions SET status = 'sent', sent_at = $1, "
           "attempts = attempts + 1, lease_owner = NULL, lease_until = NULL "
           "WHERE id = $2 AND lease_owner = $3 AND status = 'queued'",
           Params().Int(now).Int(id).Bytes(owner))
          .Changed();
  transaction.Commit();
  return changed > 0;
}

bool PostgresStore::MarkRetry(int64_t id, const std::string& owner,
                              int64_t next_attempt_at,
                              const std::string& detail) {
  Pooled pooled = Take();
  PGconn* conn = pooled.get();
  Transaction transaction(Begin(conn));
  int64_t changed =
      Exec(conn,
           "UPDATE submissions SET attempts = attempts + 1, "
           "next_attempt_at = $1, detail = $2, "
           "lease_owner = NULL, lease_until = NULL "
           "WHERE id = $3 AND lease_owner = $4 AND status = 'queued'",
           Params().Int(next_attempt_at).Bytes(detail).Int(id).Bytes(owner))
          .Changed();
  transaction.Commit();
  return changed > 0;
}

bool PostgresStore::MarkFailed(int64_t id, const std::string& owner,
                               const std::string& detail) {
  Pooled pooled = Take();
  PGconn* conn = pooled.get();
  Transaction transaction(Begin(conn));
  int64_t changed =
      Exec(conn,
           "UPDATE submissions SET status = 'failed', "
           "attempts = attempts + 1, detail = $1, "
           "lease_owner = NULL, lease_until = NULL "
           "WHERE id = $2 AND lease_owner = $3 AND status = 'queued'",
           Params().Bytes(detail).Int(id).Bytes(owner))
          .Changed();
  transaction.Commit();
  return changed > 0;
}

int64_t PostgresStore::Retry(int64_t id, int64_t now) {
  Pooled pooled = Take();
  PGconn* conn = pooled.get();
  Transaction transaction(Begin(conn));
  // As in the SQLite store: a due mail is left as it is, a leased one
  // keeps its lease.
  int64_t changed =
      Exec(conn,
           "UPDATE submissions SET status = 'queued', next_attempt_at = $1 "
           "WHERE ($2::bigint = 0 OR id = $2) AND (status = 'failed' OR "
           "(status = 'queued' AND next_attempt_at > $1))",
           Params().Int(now).Int(id))
          .Changed();
  transaction.Commit();
  return changed;
}

int64_t PostgresStore::Purge(const std::vector<Status>& statuses,
                             int64_t before) {
  if (statuses.empty()) return 0;
  // Status names are plain words: the array literal needs no quoting.
  std::string names = "{";
  for (Status status : statuses) {
    if (names.size() > 1) names += ",";
    names += StatusName(status);
  }
  names += "}";
  Pooled pooled = Take();
  PGconn* conn = pooled.get();
  Transaction transaction(Begin(conn));
  int64_t changed =
      Exec(conn,
           "DELETE FROM submissions WHERE ($1::bigint = 0 OR received_at < $1) "
           "AND status = ANY($2::text[])",
           Params().Int(before).Text(names))
          .Changed();
  transaction.Commit();
  return changed;
}

}  // namespace formwiz::store
