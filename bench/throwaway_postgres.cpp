#include "throwaway_postgres.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace formwiz::bench {

namespace fs = std::filesystem;

ThrowawayPostgres::~ThrowawayPostgres() {
  if (started_) {
    Run("'" + bin_ + "/pg_ctl' -D '" + dir_ +
        "/data' -m immediate -w -t 30 stop");
  }
  if (!dir_.empty()) {
    std::error_code ignored;
    fs::remove_all(dir_, ignored);
  }
}

bool ThrowawayPostgres::Start(std::string& error) {
  std::error_code ignored;
  for (const auto& entry :
       fs::directory_iterator("/usr/lib/postgresql", ignored)) {
    const fs::path bin = entry.path() / "bin";
    if (fs::exists(bin / "initdb") && fs::exists(bin / "pg_ctl") &&
        bin.string() > bin_) {
      bin_ = bin.string();
    }
  }
  if (bin_.empty()) {
    error = "no PostgreSQL server under /usr/lib/postgresql/*/bin";
    return false;
  }
  char pattern[] = "/tmp/formwiz-bench-pg-XXXXXX";
  if (mkdtemp(pattern) == nullptr) {
    error = "cannot make a temporary folder";
    return false;
  }
  dir_ = pattern;
  if (geteuid() == 0) {
    const passwd* user = getpwnam("postgres");
    if (user == nullptr || chown(dir_.c_str(), user->pw_uid, user->pw_gid)) {
      error = "running as root, and no postgres user to run the server";
      return false;
    }
    as_postgres_ = true;
  }
  if (!Run("'" + bin_ + "/initdb' -D '" + dir_ +
           "/data' -U postgres -A trust -E UTF8 --no-instructions")) {
    error = "initdb failed; see " + dir_ + "/log";
    return false;
  }
  started_ = Run("'" + bin_ + "/pg_ctl' -D '" + dir_ + "/data' -l '" + dir_ +
                 "/server.log' -w -t 60 -o \"-c listen_addresses='' -k " +
                 dir_ + "\" start");
  if (!started_) error = "the server did not start; see " + dir_ + "/log";
  return started_;
}

std::string ThrowawayPostgres::ConnInfo() const {
  return "host=" + dir_ + " port=5432 user=postgres dbname=postgres";
}

bool ThrowawayPostgres::Run(const std::string& command) const {
  // The folder is made by mkdtemp and the binaries' path by the package:
  // neither holds a quote.
  std::string line = as_postgres_ ? "/usr/sbin/runuser -u postgres -- " : "";
  line += command + " >>'" + dir_ + "/log' 2>&1";
  return std::system(line.c_str()) == 0;
}

}  // namespace formwiz::bench
