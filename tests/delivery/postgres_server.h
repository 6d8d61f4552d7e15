// A throw-away PostgreSQL server for tests: initdb into a temporary folder,
// listening only on a Unix socket there, started on first use and removed
// when the test program ends, however it ends. ctest runs every case as a
// program of its own, so the result of initdb is kept in the build folder
// and copied, which is much quicker than running initdb again. As root the
// server runs as the postgres system user (initdb refuses root). Absent
// binaries leave it unavailable with a reason, and the tests that need it skip.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

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
    namespace fs = std::filesystem;
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
      uid_ = user->pw_uid;
      gid_ = user->pw_gid;
      as_postgres_ = true;
    }
    std::string pattern = (fs::temp_directory_path() / "fwpg.XXXXXX").string();
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
      return;
    }
    if (!Start()) {
      why_not_ = "the server did not start";
      return;
    }
    available_ = true;
  }

  // Fills dir_/data with a new cluster: a copy of the one kept in the build
  // folder, made by the first program that needed it (under a lock, since
  // ctest runs several at once).
  bool MakeCluster() {
    namespace fs = std::filesystem;
    std::vector<std::string> initdb = {bin_ + "/initdb",
                                       "-D",
                                       dir_ + "/data",
                                       "-U",
                                       "postgres",
                                       "-A",
                                       "trust",
                                       "-E",
                                       "UTF8",
                                       "--no-sync",
                                       "--no-instructions"};
#ifdef FORMWIZ_BINARY_DIR
    fs::path kept = fs::path(FORMWIZ_BINARY_DIR) / "postgres-cluster";
    int lock = ::open((kept.string() + ".lock").c_str(),
                      O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lock < 0 || ::flock(lock, LOCK_EX) != 0) {
      if (lock >= 0) ::close(lock);
      return Run(initdb);
    }
    // The binaries that made it are written beside it: another PostgreSQL
    // version makes a new one.
    std::error_code error;
    bool current = fs::exists(kept / "data" / "PG_VERSION") &&
                   ReadAll(kept / "made-by") == bin_;
    bool ok = true;
    if (!current) {
      fs::remove_all(kept, error);
      ok = Run(initdb) && fs::create_directories(kept, error) &&
           Run({"/bin/cp", "-a", dir_ + "/data", kept.string() + "/data"},
               false);
      if (ok) {
        std::FILE* made_by = std::fopen((kept / "made-by").c_str(), "w");
        ok = made_by != nullptr && std::fputs(bin_.c_str(), made_by) >= 0 &&
             std::fclose(made_by) == 0;
      }
    } else {
      ok = Run({"/bin/cp", "-a", kept.string() + "/data", dir_ + "/data"},
               false);
    }
    ::close(lock);
    return ok;
#else
    return Run(initdb);
#endif
  }

  static std::string ReadAll(const std::filesystem::path& path) {
    std::string text;
    if (std::FILE* in = std::fopen(path.c_str(), "r")) {
      char buffer[512];
      size_t n;
      while ((n = std::fread(buffer, 1, sizeof buffer, in)) > 0) {
        text.append(buffer, n);
      }
      std::fclose(in);
    }
    return text;
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

  // The words of a command as one shell line, each word quoted.
  std::string Command(std::vector<std::string> words,
                      bool as_server_user = true) const {
    if (as_postgres_ && as_server_user) {
      words.insert(words.begin(),
                   {"/usr/sbin/runuser", "-u", "postgres", "--"});
    }
    std::string line;
    for (const std::string& word : words) {
      std::string quoted = "'";
      for (char c : word)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
      line += quoted + "' ";
    }
    return line;
  }

  bool PgCtl(std::vector<std::string> args) {
    std::vector<std::string> words = {
        bin_ + "/pg_ctl", "-D", dir_ + "/data", "-w", "-t", "30"};
    words.insert(words.end(), args.begin(), args.end());
    return Run(words);
  }

  // Runs a command quietly (its output goes to the folder's run.log) and
  // waits for it, at most a minute.
  // as_server_user: as the postgres user when this program is root.
  bool Run(const std::vector<std::string>& words,
           bool as_server_user = true) const {
    std::string line =
        Command(words, as_server_user) + ">>'" + dir_ + "/run.log' 2>&1";
    const char* argv[] = {"/bin/sh", "-c", line.c_str(), nullptr};
    pid_t pid;
    if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv),
                    environ) != 0) {
      return false;
    }
    int status = 0;
    for (int i = 0; i < 1200; ++i) {
      if (::waitpid(pid, &status, WNOHANG) == pid) {
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    return false;
  }

  static inline bool started_ = false;
  std::string bin_;
  std::string dir_;
  bool as_postgres_ = false;
  uid_t uid_ = 0;
  gid_t gid_ = 0;
  bool available_ = false;
  std::string why_not_;
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
