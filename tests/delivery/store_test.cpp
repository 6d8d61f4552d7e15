// The store, its outbox and the transports, against real SQLite files, a
// throw-away PostgreSQL server, a real SMTP server (smtp_sink.py) and a
// stand-in sendmail script. The store's behaviour is one suite run against
// both engines.
#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <netinet/in.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <sstream>

#include "delivery/store/open_store.h"
#include "delivery/store/outbox.h"
#include "delivery/store/postgres_store.h"
#include "delivery/store/sqlite_store.h"
#include "postgres_server.h"
#include "test_support.h"

namespace formwiz::store {
namespace {

namespace fs = std::filesystem;
using Kind = SendResult::Kind;
using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

SubmissionRecord Queued(const std::string& key, int64_t due = 0) {
  SubmissionRecord record;
  record.key = key;
  record.received_at = 1000;
  record.client = "192.0.2.1";
  record.recipient = "owner@example.org";
  record.mail_from = "forms@example.org";
  record.message_id = "<" + key + "@example.org>";
  record.message = "Subject: " + key + "\r\n\r\nbody\r\n";
  record.next_attempt_at = due;
  return record;
}

// SQL run past the store, as another program (or an older or newer formwiz)
// would: the first column of the first row as text, "" when there is none.
std::string RawSqlite(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_stmt* stmt = nullptr;
  std::string value;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) == SQLITE_OK &&
      sqlite3_step(stmt) == SQLITE_ROW && sqlite3_column_text(stmt, 0)) {
    value = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
  }
  sqlite3_finalize(stmt);
  sqlite3_close(db);
  return value;
}

std::string RawPostgres(const std::string& conninfo, const std::string& sql) {
  PGconn* conn = PQconnectdb(conninfo.c_str());
  PGresult* result = PQexec(conn, sql.c_str());
  std::string value;
  const ExecStatusType status = PQresultStatus(result);
  if (status == PGRES_TUPLES_OK && PQntuples(result) > 0) {
    value = PQgetvalue(result, 0, 0);
  } else if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
    ADD_FAILURE() << sql << ": " << PQerrorMessage(conn);
  }
  PQclear(result);
  PQfinish(conn);
  return value;
}

const ::testing::Environment* const kPostgresEnvironment =
    ::testing::AddGlobalTestEnvironment(new testing::PostgresEnvironment);

// One database of an engine, for one test: a fresh SQLite file or a fresh
// PostgreSQL database. Every Open is a store of its own (its own
// connection), as another process would have.
class Engine {
 public:
  virtual ~Engine() = default;
  virtual std::unique_ptr<Store> Open() = 0;
  virtual std::string Raw(const std::string& sql) = 0;
  // The SQL giving how many schema versions were applied, and the SQL that
  // makes the database look made by a newer formwiz.
  virtual std::string VersionSql() const = 0;
  virtual std::string NewerSql() const = 0;
};

class SqliteEngine : public Engine {
 public:
  std::unique_ptr<Store> Open() override {
    return std::make_unique<SqliteStore>(dir_ / "s.db");
  }
  std::string Raw(const std::string& sql) override {
    return RawSqlite(dir_ / "s.db", sql);
  }
  std::string VersionSql() const override { return "PRAGMA user_version"; }
  std::string NewerSql() const override { return "PRAGMA user_version = 99"; }

 private:
  TempDir dir_;
};

class PostgresEngine : public Engine {
 public:
  explicit PostgresEngine(std::string conninfo)
      : conninfo_(std::move(conninfo)) {}
  std::unique_ptr<Store> Open() override {
    // Chosen as the configuration would choose it.
    return OpenStore(conninfo_, "/nonexistent");
  }
  std::string Raw(const std::string& sql) override {
    return RawPostgres(conninfo_, sql);
  }
  std::string VersionSql() const override {
    return "SELECT count(*) FROM schema_migrations";
  }
  std::string NewerSql() const override {
    return "INSERT INTO schema_migrations VALUES (99)";
  }

 private:
  std::string conninfo_;
};

// A fresh PostgreSQL database, or a skip when there is no server.
std::string PostgresDatabase() {
  testing::PostgresServer& server = testing::PostgresServer::Get();
  if (!server.available()) return "";
  std::string conninfo = server.NewDatabase();
  EXPECT_FALSE(conninfo.empty());
  return conninfo;
}

class StoreEngines : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (GetParam() == "SQLite") {
      engine_ = std::make_unique<SqliteEngine>();
      return;
    }
    const std::string conninfo = PostgresDatabase();
    if (conninfo.empty()) {
      GTEST_SKIP() << testing::PostgresServer::Get().why_not();
    }
    engine_ = std::make_unique<PostgresEngine>(conninfo);
  }

  std::unique_ptr<Engine> engine_;
};

INSTANTIATE_TEST_SUITE_P(, StoreEngines,
                         ::testing::Values("SQLite", "PostgreSQL"),
                         [](const auto& info) { return info.param; });

TEST_P(StoreEngines, KeepsEveryByteAndListsByCriteria) {
  std::unique_ptr<Store> opened = engine_->Open();
  Store& store = *opened;
  SubmissionRecord record = Queued("k1");
  record.page = "https://example.org/contact.html";
  record.form_index = 3;
  record.subject = "Contact \xc3\xa9t\xc3\xa9";
  record.send_mode = "2";
  record.requested_to = "Owner";
  // Page order, not name order; NUL, invalid UTF-8 and CR LF inside.
  record.fields = {{"zeta", "last\r\nline"},
                   {"alpha", std::string("nul\0inside", 10)},
                   {"\xff\xfe", "\x80\x81"},
                   {"empty", ""}};
  record.message = std::string("8bit \xe2\x82\xac and \0 NUL\r\n", 20);
  int64_t id = store.Add(record);
  EXPECT_EQ(record.id, id);
  SubmissionRecord other = Queued("k2");
  other.received_at = 2000;
  other.client = "192.0.2.2";
  other.status = Status::kSpam;
  store.Add(other);

  std::optional<SubmissionRecord> got = store.Get(id);
  ASSERT_TRUE(got);
  EXPECT_EQ(got->fields, record.fields);
  EXPECT_EQ(got->message, record.message);
  EXPECT_EQ(got->subject, record.subject);
  EXPECT_EQ(got->page, record.page);
  EXPECT_EQ(got->form_index, 3);
  EXPECT_EQ(got->status, Status::kQueued);
  EXPECT_FALSE(store.Get(id + 100));

  // A second key alike is refused and leaves nothing behind.
  SubmissionRecord again = Queued("k1");
  again.fields = {{"a", "b"}};
  EXPECT_THROW(store.Add(again), StoreError);
  EXPECT_EQ(engine_->Raw("SELECT count(*) FROM fields"), "4");

  auto query = [](std::optional<Status> status, int64_t since, int64_t after,
                  int limit) {
    Query q;
    q.status = status;
    q.received_since = since;
    q.after_id = after;
    q.limit = limit;
    return q;
  };
  struct Case {
    Query query;
    std::vector<int64_t> ids;
  } cases[] = {
      {query(std::nullopt, 0, 0, 0), {id, other.id}},
      {query(Status::kSpam, 0, 0, 0), {other.id}},
      {query(std::nullopt, 1500, 0, 0), {other.id}},
      {query(std::nullopt, 0, id, 0), {other.id}},
      {query(std::nullopt, 0, 0, 1), {id}},
  };
  for (const Case& c : cases) {
    std::vector<int64_t> ids;
    for (const SubmissionRecord& r : store.List(c.query)) {
      ids.push_back(r.id);
      EXPECT_EQ(r.message, "") << "listings leave the message out";
      if (r.id == id) {
        EXPECT_EQ(r.fields, record.fields);
      }
    }
    EXPECT_EQ(ids, c.ids);
  }
  EXPECT_EQ(store.CountFromClientSince("192.0.2.1", 1000), 1);
  EXPECT_EQ(store.CountFromClientSince("192.0.2.1", 1001), 0);
  EXPECT_EQ(store.CountFromClientSince("192.0.2.2", 0), 1);
}

TEST_P(StoreEngines, StartedTogetherTheyMigrateOnceAndANewerSchemaIsRefused) {
  // Processes starting at the same moment on an empty database.
  std::vector<std::future<std::string>> starts;
  for (int i = 0; i < 4; ++i) {
    starts.push_back(std::async(std::launch::async, [this, i] {
      try {
        SubmissionRecord r = Queued("start" + std::to_string(i));
        engine_->Open()->Add(r);
        return std::string();
      } catch (const StoreError& e) {
        return std::string(e.what());
      }
    }));
  }
  for (auto& start : starts) EXPECT_EQ(start.get(), "");
  EXPECT_EQ(engine_->Raw(engine_->VersionSql()), "1");

  engine_->Raw(engine_->NewerSql());
  try {
    engine_->Open();
    ADD_FAILURE() << "a newer schema was opened";
  } catch (const StoreError& e) {
    EXPECT_NE(std::string(e.what()).find("newer"), std::string::npos)
        << e.what();
  }
  EXPECT_EQ(engine_->Raw("SELECT count(*) FROM submissions"), "4");
}

TEST(SqliteStore, AnotherProgramsFileKeepsItsTablesAndTheFolderIsPrivate) {
  TempDir dir;
  std::string path = dir / "old.db";
  ASSERT_EQ(RawSqlite(path, "CREATE TABLE notes (x)"), "");
  SubmissionRecord record = Queued("kept");
  SqliteStore(path).Add(record);
  EXPECT_EQ(RawSqlite(path, "SELECT count(*) FROM notes"), "0");
  EXPECT_EQ(SqliteStore(path).List({}).size(), 1u);

  std::string data = dir / "a/b/data";
  std::unique_ptr<Store> store = OpenDataStore(data);
  for (const char* level : {"a", "a/b", "a/b/data"}) {
    EXPECT_EQ(fs::status(dir.path() / level).permissions() & fs::perms::all,
              fs::perms::owner_all)
        << level;
  }
  fs::path file = fs::path(data) / SqliteStore::kFileName;
  EXPECT_EQ(fs::status(file).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(RawSqlite(file, "PRAGMA journal_mode"), "wal");
}

TEST_P(StoreEngines, LeasesKeepWorkersApartUntilTheyRunOut) {
  std::unique_ptr<Store> store_a = engine_->Open(), store_b = engine_->Open();
  Store &a = *store_a, &b = *store_b;
  std::vector<int64_t> due;
  for (int i = 0; i < 5; ++i) {
    SubmissionRecord r = Queued("due" + std::to_string(i), 100 - i);
    due.push_back(a.Add(r));
  }
  for (Status never :
       {Status::kSent, Status::kFailed, Status::kRefused, Status::kSpam}) {
    SubmissionRecord r = Queued("not" + std::string(StatusName(never)));
    r.status = never;
    a.Add(r);
  }
  SubmissionRecord later = Queued("later", 500);
  b.Add(later);

  std::vector<SubmissionRecord> first = a.ClaimDue("A", 200, 60, 3);
  ASSERT_EQ(first.size(), 3u);
  // Earliest due first; claimed records come whole.
  EXPECT_EQ(first[0].id, due[4]);
  EXPECT_EQ(first[0].message, "Subject: due4\r\n\r\nbody\r\n");
  std::vector<SubmissionRecord> second = b.ClaimDue("B", 230, 60, 10);
  ASSERT_EQ(second.size(), 2u);
  EXPECT_TRUE(b.ClaimDue("B", 259, 60, 10).empty());

  // A's lease ran out (A died, say): B takes the mail, and A's late word
  // on it changes nothing.
  std::vector<SubmissionRecord> retaken = b.ClaimDue("B", 260, 60, 10);
  ASSERT_EQ(retaken.size(), 3u);
  int64_t id = first[0].id;
  EXPECT_FALSE(a.MarkSent(id, "A", 261));
  EXPECT_FALSE(a.MarkRetry(id, "A", 900, "late"));
  EXPECT_FALSE(a.MarkFailed(id, "A", "late"));
  EXPECT_EQ(a.Get(id)->status, Status::kQueued);
  EXPECT_EQ(a.Get(id)->attempts, 0);

  EXPECT_TRUE(b.MarkSent(id, "B", 262));
  for (const SubmissionRecord& r : second) {
    EXPECT_TRUE(b.MarkSent(r.id, "B", 262));
  }
  EXPECT_FALSE(b.MarkSent(id, "B", 263)) << "sent once, recorded once";
  EXPECT_EQ(a.Get(id)->sent_at, 262);
  EXPECT_EQ(a.Get(id)->attempts, 1) << "the attempt that sent it counts";
  EXPECT_TRUE(b.MarkRetry(retaken[1].id, "B", 900, "451 later"));
  EXPECT_TRUE(b.MarkFailed(retaken[2].id, "B", "550 no"));
  SubmissionRecord retried = *a.Get(retaken[1].id);
  EXPECT_EQ(retried.attempts, 1);
  EXPECT_EQ(retried.next_attempt_at, 900);
  EXPECT_EQ(retried.detail, "451 later");
  EXPECT_EQ(a.Get(retaken[2].id)->status, Status::kFailed);
  // The retried one is not due before 900, "later" from 500 on.
  std::vector<SubmissionRecord> at600 = a.ClaimDue("A", 600, 60, 10);
  ASSERT_EQ(at600.size(), 1u);
  EXPECT_EQ(at600[0].id, later.id);
}

TEST_P(StoreEngines, ConcurrentWorkersNeverClaimTheSameMail) {
  {
    std::unique_ptr<Store> setup = engine_->Open();
    for (int i = 0; i < 120; ++i) {
      SubmissionRecord r = Queued("m" + std::to_string(i));
      setup->Add(r);
    }
  }
  std::vector<int64_t> claimed[2];
  std::string names[2];
  auto work = [&](int n) {
    std::unique_ptr<Store> store = engine_->Open();
    names[n] = WorkerName();
    while (true) {
      std::vector<SubmissionRecord> batch =
          store->ClaimDue(names[n], 10, 600, 3);
      if (batch.empty()) return;
      for (const SubmissionRecord& r : batch) {
        claimed[n].push_back(r.id);
        store->MarkSent(r.id, names[n], 11);
      }
    }
  };
  std::thread one(work, 0), two(work, 1);
  one.join();
  two.join();
  EXPECT_NE(names[0], names[1]);
  std::set<int64_t> all(claimed[0].begin(), claimed[0].end());
  all.insert(claimed[1].begin(), claimed[1].end());
  EXPECT_EQ(all.size(), claimed[0].size() + claimed[1].size());
  EXPECT_EQ(all.size(), 120u);
}

TEST_P(StoreEngines, RetryAndPurgeTouchOnlyWhatTheyMay) {
  std::unique_ptr<Store> opened = engine_->Open();
  Store& store = *opened;
  auto add = [&](const std::string& key, Status status, int64_t due,
                 int64_t received) {
    SubmissionRecord r = Queued(key, due);
    r.status = status;
    r.received_at = received;
    r.attempts = 4;
    r.fields = {{"f", key}};
    return store.Add(r);
  };
  int64_t waiting = add("waiting", Status::kQueued, 5000, 100);
  int64_t due_now = add("due", Status::kQueued, 50, 100);
  int64_t failed = add("failed", Status::kFailed, 50, 100);
  int64_t refused = add("refused", Status::kRefused, 0, 100);
  int64_t spam = add("spam", Status::kSpam, 0, 300);
  int64_t sent = add("sent", Status::kSent, 0, 100);

  EXPECT_EQ(store.Retry(sent, 1000), 0);
  EXPECT_EQ(store.Retry(refused, 1000), 0);
  EXPECT_EQ(store.Retry(0, 1000), 2);  // waiting and failed
  for (int64_t id : {waiting, failed}) {
    SubmissionRecord r = *store.Get(id);
    EXPECT_EQ(r.status, Status::kQueued);
    EXPECT_EQ(r.next_attempt_at, 1000);
    EXPECT_EQ(r.attempts, 4) << "attempts are kept";
  }
  EXPECT_EQ(store.Get(due_now)->next_attempt_at, 50);
  EXPECT_EQ(store.Get(refused)->status, Status::kRefused);
  EXPECT_EQ(store.Get(spam)->status, Status::kSpam);

  EXPECT_EQ(store.Purge({}, 0), 0);
  EXPECT_EQ(store.Purge({Status::kSent, Status::kSpam}, 200), 1);  // sent
  EXPECT_FALSE(store.Get(sent));
  EXPECT_TRUE(store.Get(spam)) << "received after the bound";
  EXPECT_EQ(store.Purge({Status::kSpam, Status::kRefused, Status::kFailed}, 0),
            2);
  EXPECT_EQ(store.List({}).size(), 3u) << "queued mails are kept";
  EXPECT_EQ(store.Purge({Status::kQueued}, 0), 3);
  EXPECT_EQ(engine_->Raw("SELECT count(*) FROM fields"), "0");
}

// What only the PostgreSQL engine has: row locks, a pool of connections,
// and a server that may go away.
class PostgresOnly : public ::testing::Test {
 protected:
  void SetUp() override {
    conninfo_ = PostgresDatabase();
    if (conninfo_.empty()) {
      GTEST_SKIP() << testing::PostgresServer::Get().why_not();
    }
  }

  // `threads` threads each Add `each` submissions; gives how many calls
  // threw, and samples the store's connections meanwhile into `most`.
  int AddFromThreads(PostgresStore& store, const std::string& prefix,
                     int threads, int each, int64_t& most) {
    std::atomic<int> failed{0};
    std::atomic<bool> done{false};
    std::thread sampler([&] {
      while (!done) {
        const std::string now = RawPostgres(
            conninfo_,
            "SELECT count(*) FROM pg_stat_activity WHERE application_name = "
            "'formwiz' AND datname = current_database()");
        most = std::max<int64_t>(most, std::atoll(now.c_str()));
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
    });
    std::vector<std::thread> adders;
    for (int t = 0; t < threads; ++t) {
      adders.emplace_back([&, t] {
        for (int n = 0; n < each; ++n) {
          SubmissionRecord record =
              Queued(prefix + std::to_string(t) + "-" + std::to_string(n));
          record.fields = {{"FullName", record.key}, {"City", "London"}};
          try {
            store.Add(record);
          } catch (const StoreError&) {
            ++failed;
          }
        }
      });
    }
    for (std::thread& adder : adders) adder.join();
    done = true;
    sampler.join();
    return failed;
  }

  std::string conninfo_;
};

TEST_F(PostgresOnly, ClaimSkipsRowsAnotherWorkerHoldsWithoutWaiting) {
  PostgresStore store(conninfo_);
  std::vector<int64_t> ids;
  for (int i = 0; i < 3; ++i) {
    SubmissionRecord r = Queued("m" + std::to_string(i), i);
    ids.push_back(store.Add(r));
  }
  // Another worker is in the middle of claiming the earliest mail: its
  // transaction holds the row's lock and has not set the lease yet.
  PGconn* other = PQconnectdb(conninfo_.c_str());
  ASSERT_EQ(PQstatus(other), CONNECTION_OK);
  PQclear(PQexec(other, "BEGIN"));
  PGresult* locked = PQexec(other, ("SELECT id FROM submissions WHERE id = " +
                                    std::to_string(ids[0]) + " FOR UPDATE")
                                       .c_str());
  ASSERT_EQ(PQntuples(locked), 1) << PQerrorMessage(other);
  PQclear(locked);
  auto claim = std::async(std::launch::async,
                          [&] { return store.ClaimDue("B", 10, 60, 10); });
  bool answered =
      claim.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
  PQclear(PQexec(other, "COMMIT"));
  PQfinish(other);
  ASSERT_TRUE(answered) << "the claim waited for the other worker's lock";
  std::vector<SubmissionRecord> claimed = claim.get();
  ASSERT_EQ(claimed.size(), 2u);
  EXPECT_EQ(claimed[0].id, ids[1]);
  EXPECT_EQ(claimed[1].id, ids[2]);
  // Released, it is due for whoever asks next.
  std::vector<SubmissionRecord> rest = store.ClaimDue("C", 10, 60, 10);
  ASSERT_EQ(rest.size(), 1u);
  EXPECT_EQ(rest[0].id, ids[0]);
}

TEST_F(PostgresOnly, ServerGoingAwayFailsTheCallAndItsReturnIsSurvived) {
  testing::PostgresServer& server = testing::PostgresServer::Get();
  PostgresStore store(conninfo_);
  SubmissionRecord first = Queued("before");
  store.Add(first);

  SubmissionRecord second = Queued("second");
  store.Add(second);

  // Down: every call fails with StoreError (the handler answers 503), and
  // nothing is half-written.
  ASSERT_TRUE(server.Stop());
  SubmissionRecord lost = Queued("while-down");
  lost.fields = {{"a", "b"}};
  EXPECT_THROW(store.Add(lost), StoreError);
  EXPECT_THROW(store.Get(first.id), StoreError);
  EXPECT_THROW(store.ClaimDue("A", 10, 60, 10), StoreError);
  EXPECT_THROW(PostgresStore another(conninfo_), StoreError);
  ASSERT_TRUE(server.Start());

  EXPECT_EQ(store.Get(first.id)->key, "before");
  EXPECT_EQ(store.List({}).size(), 2u);
  EXPECT_EQ(store.ClaimDue("A", 10, 60, 10).size(), 2u);
  EXPECT_EQ(store.Add(lost), lost.id) << "the same key is free";
}

TEST_F(PostgresOnly, ConcurrentCallsShareAFewConnectionsThatSurviveARestart) {
  PostgresStore store(conninfo_, 3);
  int64_t most = 0;
  EXPECT_EQ(AddFromThreads(store, "a", 8, 15, most), 0);
  EXPECT_LE(most, 3) << "more connections than the pool's size";

  // Every pooled connection breaks at once; each call that meets a broken
  // one opens it again before anything of the call was sent.
  ASSERT_TRUE(testing::PostgresServer::Get().Restart());
  most = 0;
  EXPECT_EQ(AddFromThreads(store, "b", 8, 5, most), 0);
  EXPECT_LE(most, 3);

  std::vector<SubmissionRecord> all = store.List({});
  ASSERT_EQ(all.size(), 8u * 15 + 8 * 5);
  std::set<std::string> keys;
  for (const SubmissionRecord& record : all) {
    keys.insert(record.key);
    EXPECT_EQ(record.fields.size(), 2u) << record.key;
    EXPECT_EQ(record.fields[0].value, record.key);
  }
  EXPECT_EQ(keys.size(), all.size());
}

TEST_F(PostgresOnly, ACommitWhoseAnswerIsLostIsAskedAgainAndKeptOnce) {
  PostgresStore store(conninfo_, 1);
  // The first commit of a submission ends its own connection while the
  // server checks the deferred trigger, as a server going down under a
  // COMMIT does: the client gets no answer to it. A sequence counts the
  // commits, since it is the one thing the rollback does not undo.
  RawPostgres(conninfo_,
              "CREATE SEQUENCE commits;"
              "CREATE FUNCTION end_first_commit() RETURNS trigger "
              "LANGUAGE plpgsql AS $$ BEGIN "
              "IF nextval('commits') = 1 THEN "
              "PERFORM pg_terminate_backend(pg_backend_pid()); END IF; "
              "RETURN NULL; END $$;"
              "CREATE CONSTRAINT TRIGGER at_commit AFTER INSERT ON "
              "submissions DEFERRABLE INITIALLY DEFERRED FOR EACH ROW "
              "EXECUTE FUNCTION end_first_commit();");
  SubmissionRecord record = Queued("lost-answer");
  record.fields = {{"FullName", "Ann"}, {"City", "London"}};
  const int64_t id = store.Add(record);
  EXPECT_EQ(record.id, id);
  EXPECT_GE(
      std::atoll(
          RawPostgres(conninfo_, "SELECT last_value FROM commits").c_str()),
      2)
      << "the commit was not cut off";
  EXPECT_EQ(RawPostgres(conninfo_, "SELECT count(*) FROM submissions"), "1");
  std::optional<SubmissionRecord> kept = store.Get(id);
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->key, "lost-answer");
  EXPECT_EQ(kept->fields, record.fields);

  // A key that is there already is refused at once: only a lost answer
  // makes a second insert of the same key mean "the same submission".
  SubmissionRecord again = Queued("lost-answer");
  EXPECT_THROW(store.Add(again), StoreError);
  EXPECT_EQ(RawPostgres(conninfo_, "SELECT count(*) FROM submissions"), "1");
}

TEST(OpenStore, ConfigurationChoosesTheEngineAndAnUnreachableOneIs503) {
  TempDir dir;
  EXPECT_NE(dynamic_cast<SqliteStore*>(OpenStore("", dir / "data").get()),
            nullptr);
  EXPECT_THROW(OpenStore("mysql://db/forms", dir / "data"), StoreError);
  const std::string nowhere = "host=" + (dir / "none") + " dbname=forms";
  EXPECT_THROW(OpenStore(nowhere, dir / "data"), StoreError);
  EXPECT_THROW(OpenStore("postgresql://%2Fnonexistent/forms", dir / "data"),
               StoreError);

  // formwiz-mail answers a post it cannot keep with 503: try again later.
  const std::string bin = FORMWIZ_MAIL_PROGRAM;
  if (!fs::exists(bin)) GTEST_SKIP() << bin << " is not built";
  const std::string config =
      dir.File("c.toml", "[store]\nurl = \"" + nowhere + "\"\n");
  const testing::ProgramRun run = testing::RunProgram(
      {bin}, "a=b",
      {"FORMWIZ_CONFIG=" + config, "REQUEST_METHOD=POST", "CONTENT_LENGTH=3"});
  EXPECT_EQ(run.out.rfind("Status: 503", 0), 0u) << run.out;
  EXPECT_NE(run.out.find("Retry-After: 60"), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find("nonexistent"), std::string::npos)
      << "the store's address stays private";
}

TEST(Outbox, BackoffDoublesUpToItsCap) {
  OutboxSettings settings;  // 30 s doubled, up to an hour
  std::pair<int, int64_t> cases[] = {{0, 30},   {1, 60},      {6, 1920},
                                     {7, 3600}, {1000, 3600}, {-1, 30}};
  for (auto [attempts, seconds] : cases) {
    EXPECT_EQ(BackoffSeconds(settings, attempts), seconds) << attempts;
  }
}

// A transport that lets another worker take over the mail while it is
// being sent, as when a send outlasts the lease.
class OutlastingTransport : public Transport {
 public:
  OutlastingTransport(Store& other, int64_t& clock)
      : other_(other), clock_(clock) {}
  SendResult Send(const std::string&, const std::vector<std::string>&,
                  const std::string&) override {
    clock_ += 1000;
    taken_ += other_.ClaimDue("other", clock_, 100000, 1).size();
    return {Kind::kSent, "250 OK"};
  }
  size_t taken_ = 0;

 private:
  Store& other_;
  int64_t& clock_;
};

TEST_P(StoreEngines, OutboxCountsLostLeasesAndHonoursStop) {
  std::unique_ptr<Store> store_mine = engine_->Open(),
                         store_theirs = engine_->Open();
  Store &mine = *store_mine, &theirs = *store_theirs;
  for (int i = 0; i < 3; ++i) {
    SubmissionRecord r = Queued("m" + std::to_string(i));
    mine.Add(r);
  }
  int64_t clock = 100;
  OutlastingTransport transport(theirs, clock);
  OutboxPass pass = DeliverDue(
      mine, transport, OutboxSettings{}, "me", [&] { return clock; },
      [&] { return transport.taken_ < 2; });
  EXPECT_EQ(pass.lost_lease, 2);
  EXPECT_EQ(pass.sent, 0);
  EXPECT_EQ(transport.taken_, 2u) << "the third mail was not sent";
  Query queued;
  queued.status = Status::kQueued;
  EXPECT_EQ(mine.List(queued).size(), 3u);
}

// smtp_sink.py, started for one test and stopped after it, also when the
// test fails. Its standard input is a pipe from here: if this program dies,
// the sink ends too.
class SmtpSink {
 public:
  explicit SmtpSink(const fs::path& folder) : folder_(folder) {}
  ~SmtpSink() { Stop(); }

  // Starts the sink and waits (bounded) for the port it reports.
  void Start(std::vector<std::string> args) {
    // Debian's python3, which has aiosmtpd.
    args.insert(
        args.begin(),
        {"/usr/bin/python3", FORMWIZ_SOURCE_DIR "/tests/delivery/smtp_sink.py",
         "--dir", folder_.string(), "--max-seconds", "120"});
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    const std::string said = folder_.string() + ".out";
    int in[2];
    ASSERT_EQ(::pipe2(in, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_addopen(&actions, 1, said.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_EQ(
        posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ),
        0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    stdin_ = in[1];
    std::string line;
    for (int i = 0; i < 200 && line.find('\n') == std::string::npos; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      line = ReadFile(said);
    }
    std::istringstream words(line);
    std::string listening, host;
    words >> listening >> host >> port_;
    ASSERT_EQ(listening, "listening") << "sink said: " << line;
  }

  void Stop() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    for (int i = 0; i < 100 && ::waitpid(pid_, nullptr, WNOHANG) == 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    if (::waitpid(pid_, nullptr, WNOHANG) == 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    ::close(stdin_);
    pid_ = -1;
  }

  std::string Url() const {
    return "smtp://127.0.0.1:" + std::to_string(port_);
  }

  // The messages received so far, in order: (raw bytes, envelope).
  std::vector<std::pair<std::string, nlohmann::json>> Messages() const {
    std::vector<fs::path> names;
    for (const auto& entry : fs::directory_iterator(folder_)) {
      if (entry.path().extension() == ".eml") names.push_back(entry.path());
    }
    std::sort(names.begin(), names.end());
    std::vector<std::pair<std::string, nlohmann::json>> messages;
    for (fs::path& name : names) {
      std::string raw = ReadFile(name);
      messages.emplace_back(
          raw,
          nlohmann::json::parse(ReadFile(name.replace_extension(".json"))));
    }
    return messages;
  }

 private:
  fs::path folder_;
  pid_t pid_ = -1;
  int stdin_ = -1;
  int port_ = 0;
};

// A port with nothing listening on it, for now, taken below the kernel's
// ephemeral range: a bind(0) or an outgoing connection of a test running
// beside this one takes its port from that range and could take this one
// before the SMTP server binds it.
int FreePort() {
  std::random_device seed;
  std::mt19937 random(seed());
  std::uniform_int_distribution<int> ports(10000, 32767);
  for (int attempt = 0; attempt < 200; ++attempt) {
    const int port = ports(random);
    const int s = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    const bool free =
        ::bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(s);
    if (free) return port;
  }
  ADD_FAILURE() << "no free loopback port";
  return 0;
}

std::unique_ptr<Transport> Smtp(const std::string& url,
                                int timeout_seconds = 10) {
  SmtpSettings settings;
  settings.url = url;
  settings.timeout_seconds = timeout_seconds;
  return MakeSmtpTransport(settings);
}

class OutboxSmtp : public ::testing::Test {
 protected:
  OutboxSmtp() : store_(dir_ / "s.db"), sink_(dir_.path() / "mail") {}

  OutboxPass Pass(Transport& transport) {
    return DeliverDue(
        store_, transport, settings_, "worker", [this] { return clock_; },
        [] { return true; });
  }

  TempDir dir_;
  SqliteStore store_;
  SmtpSink sink_;
  OutboxSettings settings_;
  int64_t clock_ = 10000;
};

TEST_F(OutboxSmtp, SendsOnceWithTheBytesIntact) {
  sink_.Start({});
  SubmissionRecord record = Queued("intact");
  // Lines a dot starts (SMTP escapes them), 8-bit text, a bare last line.
  record.message =
      "Subject: =?UTF-8?Q?caf=C3=A9?=\r\nMessage-ID: <intact@example.org>\r\n"
      "\r\n.\r\n..two\r\n\xc3\xa9t\xc3\xa9\r\n.end\r\n";
  store_.Add(record);
  std::unique_ptr<Transport> smtp = Smtp(sink_.Url());
  OutboxPass pass = Pass(*smtp);
  EXPECT_EQ(pass.sent, 1);
  EXPECT_EQ(Pass(*smtp).sent, 0);
  auto messages = sink_.Messages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].first, record.message);
  EXPECT_EQ(messages[0].second["mail_from"], "forms@example.org");
  EXPECT_EQ(messages[0].second["rcpt_tos"],
            nlohmann::json::array({"owner@example.org"}));
  SubmissionRecord after = *store_.Get(record.id);
  EXPECT_EQ(after.status, Status::kSent);
  EXPECT_EQ(after.sent_at, clock_);

  // Whatever the configured URL names, only SMTP is spoken.
  std::string http = sink_.Url().replace(0, 4, "http");
  SendResult other = Smtp(http)->Send("forms@example.org",
                                      {"owner@example.org"}, record.message);
  EXPECT_EQ(other.kind, Kind::kTemporary);
  EXPECT_EQ(sink_.Messages().size(), 1u);
}

TEST_F(OutboxSmtp, ServerDownIsRetriedWithBackoffThenDelivered) {
  int port = FreePort();
  SubmissionRecord record = Queued("down");
  store_.Add(record);
  std::unique_ptr<Transport> smtp =
      Smtp("smtp://127.0.0.1:" + std::to_string(port), 5);
  int64_t start = clock_;
  EXPECT_EQ(Pass(*smtp).retried, 1);
  EXPECT_EQ(store_.Get(record.id)->next_attempt_at, start + 30);
  clock_ = start + 29;
  EXPECT_EQ(Pass(*smtp).retried, 0) << "not due yet";
  clock_ = start + 30;
  EXPECT_EQ(Pass(*smtp).retried, 1);
  SubmissionRecord waiting = *store_.Get(record.id);
  EXPECT_EQ(waiting.attempts, 2);
  EXPECT_EQ(waiting.next_attempt_at, start + 30 + 60);
  EXPECT_FALSE(waiting.detail.empty());

  sink_.Start({"--port", std::to_string(port)});
  clock_ = start + 90;
  EXPECT_EQ(Pass(*smtp).sent, 1);
  EXPECT_EQ(sink_.Messages().size(), 1u);
  EXPECT_EQ(store_.Get(record.id)->status, Status::kSent);
}

TEST_F(OutboxSmtp, ServerAnswersDecideTheOutcome) {
  struct Case {
    const char* name;
    std::vector<std::string> sink_args;
    int timeout_seconds;
    Status status;
    const char* detail;
  } cases[] = {
      {"refused",
       {"--refuse", "owner@example.org"},
       10,
       Status::kFailed,
       "550 5.1.1 refused"},
      {"later",
       {"--tempfail-rcpt", "owner@example.org"},
       10,
       Status::kQueued,
       "451 4.3.0 try later"},
      {"slow", {"--slow", "3"}, 1, Status::kQueued, "imeout"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SmtpSink sink(dir_.path() / c.name);
    sink.Start(c.sink_args);
    SubmissionRecord record = Queued(c.name, clock_);
    store_.Add(record);
    std::unique_ptr<Transport> smtp = Smtp(sink.Url(), c.timeout_seconds);
    Pass(*smtp);
    SubmissionRecord after = *store_.Get(record.id);
    EXPECT_EQ(after.status, c.status);
    EXPECT_EQ(after.attempts, 1);
    EXPECT_NE(after.detail.find(c.detail), std::string::npos) << after.detail;
    if (c.status == Status::kQueued) {
      EXPECT_GT(after.next_attempt_at, clock_);
    }
    store_.Purge({Status::kQueued, Status::kFailed}, 0);
  }
}

// A login waits for TLS unless "off" says otherwise: a server that offers
// AUTH but no STARTTLS (or whose offer was stripped on the way) never sees
// the password, and the mail waits.
TEST_F(OutboxSmtp, ALoginNeverGoesInClearUnlessTold) {
  sink_.Start({"--auth"});
  const fs::path logins = dir_.path() / "mail" / "logins";
  for (const char* starttls : {"try", "required", "off"}) {
    SCOPED_TRACE(starttls);
    SmtpSettings settings;
    settings.url = sink_.Url();
    settings.user = "forms";
    settings.password = "secret";
    settings.starttls = starttls;
    settings.timeout_seconds = 10;
    const SendResult result = MakeSmtpTransport(settings)->Send(
        "forms@example.org", {"owner@example.org"}, "Subject: x\r\n\r\nx\r\n");
    const bool in_clear = std::string_view(starttls) == "off";
    EXPECT_EQ(result.kind, in_clear ? Kind::kSent : Kind::kTemporary)
        << result.detail;
    EXPECT_EQ(fs::exists(logins) && ReadFile(logins) == "forms secret\n",
              in_clear);
  }
}

TEST_F(OutboxSmtp, TemporaryFailuresRunOutIntoFailed) {
  sink_.Start({"--tempfail-rcpt", "owner@example.org"});
  settings_.max_attempts = 2;
  SubmissionRecord record = Queued("runs-out");
  store_.Add(record);
  std::unique_ptr<Transport> smtp = Smtp(sink_.Url());
  EXPECT_EQ(Pass(*smtp).retried, 1);
  clock_ += 3600;
  EXPECT_EQ(Pass(*smtp).failed, 1);
  SubmissionRecord after = *store_.Get(record.id);
  EXPECT_EQ(after.status, Status::kFailed);
  EXPECT_EQ(after.attempts, 2);
  EXPECT_NE(after.detail.find("gave up"), std::string::npos);
  // An operator's retry brings it back for one more try.
  EXPECT_EQ(store_.Retry(record.id, clock_), 1);
  EXPECT_EQ(Pass(*smtp).failed, 1);
  EXPECT_TRUE(sink_.Messages().empty());
}

// Stands in for sendmail: keeps its arguments and input, says something,
// and exits as told by the file "status" beside it.
constexpr const char* kFakeSendmail = R"(#!/bin/sh
here=$(dirname "$0")
printf '%s\n' "$@" > "$here/args"
case $(cat "$here/status") in
  hang) exec sleep 30 ;;
  deaf) echo "not reading" >&2; exit 1 ;;
esac
cat > "$here/stdin"
echo "mailer: queued as 42" >&2
exit $(cat "$here/status")
)";

TEST(SendmailTransport, ExitStatusDecidesAndTheMessageArrivesWithLf) {
  TempDir dir;
  fs::path program = dir.path() / "sendmail";
  WriteFile(program, kFakeSendmail);
  fs::permissions(program, fs::perms::owner_all);
  const std::string message = "Subject: s\r\n\r\nline one\r\nline two\r\n";
  struct Case {
    const char* status;
    Kind kind;
    const char* detail;
  } cases[] = {
      {"0", Kind::kSent, "queued as 42"},
      {"75", Kind::kTemporary, "exit 75"},
      {"67", Kind::kPermanent, "exit 67: mailer: queued as 42"},
      {"hang", Kind::kTemporary, "no answer within 1 s"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.status);
    WriteFile(dir.path() / "status", c.status);
    std::unique_ptr<Transport> sendmail =
        MakeSendmailTransport(program.string(), 1);
    SendResult result =
        sendmail->Send("forms@example.org", {"owner@example.org"}, message);
    EXPECT_EQ(result.kind, c.kind);
    EXPECT_NE(result.detail.find(c.detail), std::string::npos) << result.detail;
    EXPECT_EQ(ReadFile(dir.path() / "args"),
              "-oi\n-t\n-f\nforms@example.org\n");
  }
  EXPECT_EQ(ReadFile(dir.path() / "stdin"),
            "Subject: s\n\nline one\nline two\n");

  // A mailer that quits without reading a large message: no SIGPIPE here.
  WriteFile(dir.path() / "status", "deaf");
  std::string big(8 << 20, 'x');
  SendResult deaf = MakeSendmailTransport(program.string(), 10)
                        ->Send("forms@example.org", {"o@example.org"}, big);
  EXPECT_EQ(deaf.kind, Kind::kPermanent);
  EXPECT_NE(deaf.detail.find("not reading"), std::string::npos);

  // No mailer where configured: the mail waits, and an option-like sender
  // never reaches the command line.
  EXPECT_EQ(MakeSendmailTransport((dir / "missing"), 1)
                ->Send("f@example.org", {"o@example.org"}, message)
                .kind,
            Kind::kTemporary);
  fs::remove(dir.path() / "args");
  EXPECT_EQ(MakeSendmailTransport(program.string(), 1)
                ->Send("-X/tmp/log", {"o@example.org"}, message)
                .kind,
            Kind::kPermanent);
  EXPECT_FALSE(fs::exists(dir.path() / "args"));
}

}  // namespace
}  // namespace formwiz::store
