// A throw-away PostgreSQL server for tests: initdb into a temporary folder,
// listening only on a Unix socket there, started on first use and removed
// when the test program ends, however it ends. ctest runs every case as a
// program of its own, so the result of initdb is kept in the build folder
// and copied, which is much quicker than running initdb again. As root the
// server runs as the postgres system user (initdb refuses root). Absent
// binaries leave it unavailable with a reason, and the tests that need it skip.
#pragma once

#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <pwd.h>

#include <fstream>

#include "test_support.h"

namespace formwiz::testing {

class PostgresServer {
 public:
  // The one server of this test program, started on the first call.
  static PostgresServer& Get() {
    static PostgresServer* server = new PostgresServer();
    return *server;
  }
  static bool Started() { return started_; }

  bool available() const { return available_; }
  const std::string& why_not() const { return why_not_; }

  std::string ConnInfo(const std::string& database) const {
    return "host=" + dir_ + " port=5432 user=postgres dbname=" + database;
  }

  // A new, empty database; gives its connection string ("" on failure).
  std::string NewDatabase() {
    std::string name = "t" + std::to_string(++databases_);
    PGconn* conn = PQconnectdb(ConnInfo("postgres").c_str());
    PGresult* result = PQexec(conn, ("CREATE DATABASE " + name).c_str());
    bool ok = PQresultStatus(result) == PGRES_COMMAND_OK;
    if (!ok) ADD_FAILURE() << "CREATE DATABASE: " << PQerrorMessage(conn);
    PQclear(result);
    PQfinish(conn);
    return ok ? ConnInfo(name) : "";
  }

  bool Stop() { return PgCtl({"-m", "immediate", "stop"}); }
  bool Start() {
    return PgCtl({"-l", dir_ + "/log", "-o",
                  "-c listen_addresses='' -k " + dir_ +
                      " -c fsync=off -c max_connections=40",
                  "start"});
  }
  bool Restart() { return PgCtl({"-m", "fast", "restart"}); }

  // Stops the server and removes its folder, waiting a bounded time.
  void Shutdown() {
    if (watchdog_ < 0) return;
    ::close(watchdog_input_);
    for (int i = 0; i < 400 && ::waitpid(watchdog_, nullptr, WNOHANG) == 0;
         ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    if (::waitpid(watchdog_, nullptr, WNOHANG) == 0) {
      ::kill(watchdog_, SIGKILL);
      ::waitpid(watchdog_, nullptr, 0);
    }
    watchdog_ = -1;
    available_ = false;
  }

 private:
  PostgresServer() {
    started_ = true;
    std::error_code error;
    for (const auto& entry :
         fs::directory_iterator("/usr/lib/postgresql", error)) {
      fs::path bin = entry.path() / "bin";
      if (fs::exists(bin / "initdb") && fs::exists(bin / "pg_ctl") &&
          bin.string() > bin_) {
        bin_ = bin.string();
      }
    }
    if (bin_.empty()) {
      why_not_ = "no PostgreSQL server under /usr/lib/postgresql/*/bin";
      return;
    }
    if (::geteuid() == 0) {
      passwd* user = ::getpwnam("postgres");
      if (user == nullptr || ::access("/usr/sbin/runuser", X_OK) != 0) {
        why_not_ = "running as root, and no postgres user or runuser";
        return;
      }
      as_postgres_ = true;
      uid_ = user->pw_uid;
      gid_ = user->pw_gid;
    }
    std::string pattern = fs::temp_directory_path() / "fwpg.XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
      why_not_ = "cannot make a temporary folder";
      return;
    }
    dir_ = pattern;
    if (as_postgres_ && ::chown(dir_.c_str(), uid_, gid_) != 0) {
      why_not_ = "cannot give the temporary folder to postgres";
      fs::remove_all(dir_);
      return;
    }
    StartWatchdog();
    if (!MakeCluster()) {
      why_not_ = "initdb failed; see " + dir_ + "/run.log";
    } else if (!Start()) {
      why_not_ = "the server did not start";
    } else {
      available_ = true;
    }
  }

  // Fills dir_/data with a new cluster: a copy of the one kept in the build
  // folder, made by the first program that needed it (under a lock, since
  // ctest runs several at once). The binaries that made it are written
  // beside it: another PostgreSQL version makes a new one.
  bool MakeCluster() {
    const std::string initdb =
        Command({bin_ + "/initdb", "-D", dir_ + "/data", "-U", "postgres", "-A",
                 "trust", "-E", "UTF8", "--no-sync", "--no-instructions"});
#ifdef FORMWIZ_BINARY_DIR
    const std::string script =
        "exec 9>\"$1.lock\" && flock 9 || exit 1\n"
        "if [ -f \"$1/data/PG_VERSION\" ] && "
        "[ \"$(cat \"$1/made-by\")\" = \"$2\" ]; then\n"
        "  exec cp -a \"$1/data\" \"$3/data\"\nfi\n"
        "rm -rf \"$1\" && " +
        initdb +
        " && mkdir -p \"$1\" && cp -a \"$3/data\" \"$1/data\" &&"
        " printf %s \"$2\" > \"$1/made-by\"";
    return Run(
        {"/bin/sh", "-c", script, "sh",
         std::string(FORMWIZ_BINARY_DIR) + "/postgres-cluster", bin_, dir_},
        false);
#else
    return Run({"/bin/sh", "-c", initdb}, false);
#endif
  }

  // Removes the server when this program ends, also when it crashes: a
  // shell waits for the end of a pipe only this process holds.
  void StartWatchdog() {
    std::string stop = Command({bin_ + "/pg_ctl", "-D", dir_ + "/data", "-m",
                                "immediate", "-w", "-t", "20", "stop"});
    std::string script = "read _; if [ -f '" + dir_ +
                         "/data/postmaster.pid' ]; then " + stop +
                         " >/dev/null 2>&1; fi; rm -rf '" + dir_ + "'";
    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipe[0], 0);
    const char* argv[] = {"/bin/sh", "-c", script.c_str(), nullptr};
    if (posix_spawn(&watchdog_, "/bin/sh", &actions, nullptr,
                    const_cast<char**>(argv), environ) != 0) {
      watchdog_ = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipe[0]);
    watchdog_input_ = pipe[1];
  }

  // The words of a command as one shell line, each word quoted, run as the
  // postgres user when this program is root.
  std::string Command(std::vector<std::string> words) const {
    if (as_postgres_) {
      words.insert(words.begin(),
                   {"/usr/sbin/runuser", "-u", "postgres", "--"});
    }
    std::string line;
    for (const std::string& word : words) {
      line += "'";
      for (char c : word)
        line += c == '\'' ? std::string("'\\''") : std::string(1, c);
      line += "' ";
    }
    return line;
  }

  bool PgCtl(std::vector<std::string> args) {
    std::vector<std::string> words = {
        bin_ + "/pg_ctl", "-D", dir_ + "/data", "-w", "-t", "30"};
    words.insert(words.end(), args.begin(), args.end());
    return Run(words);
  }

  // Runs a command, as the postgres user when this program is root and
  // `as_server_user`, with its output kept in the folder's run.log.
  bool Run(std::vector<std::string> words, bool as_server_user = true) const {
    if (as_postgres_ && as_server_user) {
      words.insert(words.begin(),
                   {"/usr/sbin/runuser", "-u", "postgres", "--"});
    }
    const ProgramRun run = RunProgram(words);
    std::ofstream(dir_ + "/run.log", std::ios::app) << run.out << run.err;
    return run.status == 0;
  }

  static inline bool started_ = false;
  std::string bin_, dir_, why_not_;
  bool as_postgres_ = false, available_ = false;
  uid_t uid_ = 0;
  gid_t gid_ = 0;
  int databases_ = 0;
  pid_t watchdog_ = -1;
  int watchdog_input_ = -1;
};

// Stops the server after the last test, when one was started.
class PostgresEnvironment : public ::testing::Environment {
 public:
  void TearDown() override {
    if (PostgresServer::Started()) PostgresServer::Get().Shutdown();
  }
};

}  // namespace formwiz::testing
