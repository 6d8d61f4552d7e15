// A PostgreSQL server of the benchmark's own: initdb into a temporary
// folder, listening only on a Unix socket there, removed when the object
// goes. Unlike the tests' server it keeps fsync on, since the benchmark
// measures what a durable commit costs. As root it runs as the postgres
// system user (initdb refuses root).
#pragma once

#include <string>

namespace formwiz::bench {

class ThrowawayPostgres {
 public:
  ThrowawayPostgres() = default;
  ~ThrowawayPostgres();
  ThrowawayPostgres(const ThrowawayPostgres&) = delete;
  ThrowawayPostgres& operator=(const ThrowawayPostgres&) = delete;

  // Makes and starts the server; false with `error` set when it cannot.
  bool Start(std::string& error);
  // libpq's connection string for the server's own database.
  std::string ConnInfo() const;

 private:
  // Runs `command` through the shell (as the server's user when root),
  // its output going to the folder's log; true when it exited with 0.
  bool Run(const std::string& command) const;

  std::string bin_;
  std::string dir_;
  bool as_postgres_ = false;
  bool started_ = false;
};

}  // namespace formwiz::bench
