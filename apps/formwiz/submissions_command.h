// `formwiz submissions`: reads and manages the store of submissions that
// `formwiz serve` and formwiz-mail keep: list, show, export, retry, purge.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "command.h"

namespace formwiz::cli {

struct SubmissionsOptions {
  std::string action;  // list, show, export, retry, purge
  std::optional<std::string> data;
  std::optional<std::string> config;
  std::optional<std::string> smtp;  // retry
  std::optional<std::string> from;  // retry
  int64_t id = 0;                   // show; retry (0: all)
  bool json = false;
  bool csv = false;
  std::optional<std::string> status;  // list, export
  std::vector<std::string> statuses;  // purge
  std::optional<int64_t> older_than;  // purge: days
};

// Registers `submissions` and its subcommands on `parent`.
Command AddSubmissionsCommand(CLI::App& parent);

// Gives kExitOk; kExitFailure when the configuration or the store cannot be
// used or the submission asked for is not there (one line on stderr).
int RunSubmissions(const SubmissionsOptions& options);

}  // namespace formwiz::cli
