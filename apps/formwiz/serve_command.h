// `formwiz serve`: one process that serves page files and site folders as
// static HTML and answers their forms' posts at /cgi-bin/formmail, storing
// every submission and mailing it when a mail server is configured.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "command.h"
#include "delivery/config.h"

namespace formwiz::cli {

struct ServeOptions {
  std::optional<std::string> listen;  // HOST:PORT
  std::optional<std::string> data;    // the data folder
  std::optional<std::string> smtp;    // smtp://host[:port]
  std::optional<std::string> from;    // the sender's address
  std::optional<std::string> config;  // a TOML file
  std::vector<std::string> paths;     // page files and folders
};

// What `serve` and `submissions` share: the configuration file when one is
// named (defaults otherwise), with the --smtp and --from flags laid over it.
// Nothing, with one line on stderr after `prefix`, when the file cannot be
// used or the sender is not one address.
std::optional<delivery::Config> CommandConfig(
    const std::optional<std::string>& file,
    const std::optional<std::string>& smtp,
    const std::optional<std::string>& from, const char* prefix);
// --data, else the configuration's data folder, else the default one.
std::string DataDir(const std::optional<std::string>& flag,
                    const delivery::Config& config);

// Registers `serve` on `parent`.
Command AddServeCommand(CLI::App& parent);

// Serves until SIGINT or SIGTERM, then finishes the requests under way and
// gives kExitOk. kExitFailure when the configuration, a path, the store or
// the address cannot be used (one line on stderr).
int RunServe(const ServeOptions& options);

}  // namespace formwiz::cli
