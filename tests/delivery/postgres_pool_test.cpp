// The PostgreSQL store under concurrent calls: its pool of connections, a
// restart of the server under all of them, and a commit whose answer is
// lost. The server is the one of store_test.cpp (postgres_server.h).
#include <gtest/gtest.h>
#include <libpq-fe.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "delivery/store/postgres_store.h"
#include "postgres_server.h"

namespace formwiz::store {
namespace {

SubmissionRecord Posted(const std::string& key) {
  SubmissionRecord record;
  record.key = key;
  record.received_at = 1000;
  record.client = "192.0.2.9";
  record.recipient = "owner@example.org";
  record.message_id = "<" + key + "@example.org>";
  record.message = "Subject: " + key + "\r\n\r\nbody\r\n";
  record.fields = {{"FullName", key}, {"City", "London"}};
  return record;
}

// Runs `sql` over a connection of its own; the first column of the first
// row as a number, -1 when there is none, -2 when the statement failed.
int64_t Raw(const std::string& conninfo, const std::string& sql) {
  PGconn* conn = PQconnectdb(conninfo.c_str());
  PGresult* result = PQexec(conn, sql.c_str());
  int64_t value = -1;
  const ExecStatusType status = PQresultStatus(result);
  if (status == PGRES_TUPLES_OK && PQntuples(result) > 0) {
    value = std::atoll(PQgetvalue(result, 0, 0));
  } else if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
    ADD_FAILURE() << sql << ": " << PQerrorMessage(conn);
    value = -2;
  }
  PQclear(result);
  PQfinish(conn);
  return value;
}

class PostgresPool : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::PostgresServer& server = testing::PostgresServer::Get();
    if (!server.available()) GTEST_SKIP() << server.why_not();
    conninfo_ = server.NewDatabase();
    ASSERT_FALSE(conninfo_.empty());
  }

  // `threads` threads each Add `each` submissions; gives how many calls
  // threw, and samples the store's connections meanwhile into `most`.
  int AddFromThreads(PostgresStore& store, const std::string& prefix,
                     int threads, int each, int64_t& most) {
    std::atomic<int> failed{0};
    std::atomic<bool> done{false};
    std::thread sampler([&] {
      while (!done) {
        most = std::max(most, Raw(conninfo_,
                                  "SELECT count(*) FROM pg_stat_activity "
                                  "WHERE application_name = 'formwiz' AND "
                                  "datname = current_database()"));
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
    });
    std::vector<std::thread> adders;
    for (int t = 0; t < threads; ++t) {
      adders.emplace_back([&, t] {
        for (int n = 0; n < each; ++n) {
          SubmissionRecord record =
              Posted(prefix + std::to_string(t) + "-" + std::to_string(n));
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

TEST_F(PostgresPool, ConcurrentCallsShareAFewConnectionsThatSurviveARestart) {
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

TEST_F(PostgresPool, ACommitWhoseAnswerIsLostIsAskedAgainAndKeptOnce) {
  PostgresStore store(conninfo_, 1);
  // The first commit of a submission ends its own connection while the
  // server checks the deferred trigger, as a server going down under a
  // COMMIT does: the client gets no answer to it. A sequence counts the
  // commits, since it is the one thing the rollback does not undo.
  ASSERT_EQ(Raw(conninfo_,
                "CREATE SEQUENCE commits;"
                "CREATE FUNCTION end_first_commit() RETURNS trigger "
                "LANGUAGE plpgsql AS $$ BEGIN "
                "IF nextval('commits') = 1 THEN "
                "PERFORM pg_terminate_backend(pg_backend_pid()); END IF; "
                "RETURN NULL; END $$;"
                "CREATE CONSTRAINT TRIGGER at_commit AFTER INSERT ON "
                "submissions DEFERRABLE INITIALLY DEFERRED FOR EACH ROW "
                "EXECUTE FUNCTION end_first_commit();"),
            -1);
  SubmissionRecord record = Posted("lost-answer");
  const int64_t id = store.Add(record);
  EXPECT_EQ(record.id, id);
  EXPECT_GE(Raw(conninfo_, "SELECT last_value FROM commits"), 2)
      << "the commit was not cut off";
  EXPECT_EQ(Raw(conninfo_, "SELECT count(*) FROM submissions"), 1);
  std::optional<SubmissionRecord> kept = store.Get(id);
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->key, "lost-answer");
  EXPECT_EQ(kept->fields, record.fields);

  // A key that is there already is refused at once: only a lost answer
  // makes a second insert of the same key mean "the same submission".
  SubmissionRecord again = Posted("lost-answer");
  EXPECT_THROW(store.Add(again), StoreError);
  EXPECT_EQ(Raw(conninfo_, "SELECT count(*) FROM submissions"), 1);
}

}  // namespace
}  // namespace formwiz::store
