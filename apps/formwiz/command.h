// What the subcommands of the formwiz program share: how one is registered
// with the command line, and what its exit status means.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace formwiz::cli {

// Exit statuses, the same for every subcommand.
inline constexpr int kExitOk = 0;
// The input could not be used, or the component showed a message box.
inline constexpr int kExitFailure = 1;
// The command line itself was wrong; CLI11 has said why on stderr.
inline constexpr int kExitUsage = 2;

// A subcommand as main() sees it: CLI11 fills the options behind `app` while
// parsing, and `run` does the work once the whole line has been accepted, so
// no work starts on a line that later turns out to be wrong.
struct Command {
  CLI::App* app = nullptr;
  std::function<int()> run;
};

}  // namespace formwiz::cli
