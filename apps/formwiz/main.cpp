// formwiz: the form wizard component run from the command line, for headless
// use and for checking definitions. Each subcommand lives in its own
// *_command.cpp and is registered here.
//
// Exit status: 0 success; 1 unusable input, or the component showed a
// message box (written to stderr); 2 a wrong command line or an invalid
// script.
#include <CLI/CLI.hpp>
#include <vector>

#include "assemble_command.h"
#include "command.h"
#include "formwiz/version.h"
#include "page_command.h"
#include "script_command.h"
#include "serve_command.h"
#include "submissions_command.h"

int main(int argc, char** argv) {
  using namespace formwiz::cli;
  CLI::App app{"formwiz: the form wizard component, run without the editor."};
  app.footer(
      "Exit status: 0 success; 1 the input could not be used or the "
      "component reported a problem (on stderr); 2 a wrong command line or "
      "an invalid script.");
  app.set_version_flag("--version", "formwiz " FORMWIZ_VERSION);
  app.require_subcommand(1);
  const std::vector<Command> commands = {
      AddAssembleCommand(app), AddScriptCommand(app), AddPageCommand(app),
      AddServeCommand(app), AddSubmissionsCommand(app)};

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // --help arrives here too, and CLI11 gives it status 0. CLI11's own
    // codes for the rest start at 100, which would read like our report
    // numbers: every usage error is 2, as for most Unix tools.
    return app.exit(e) == 0 ? kExitOk : kExitUsage;
  }
  for (const Command& command : commands) {
    if (command.app->parsed()) return command.run();
  }
  return kExitUsage;  // require_subcommand(1) lets no line get here
}
