// `formwiz script`: plays the editor and the person at the dialogs from a
// JSON script and prints the transcript (SCRIPTING.md).
#pragma once

#include "command.h"

namespace formwiz::cli {

// Registers `script` on `parent`. Exit status: 0 the script ran to its end,
// whatever the component did; 2 the script is invalid, with one line on
// stderr naming the step and the problem.
Command AddScriptCommand(CLI::App& parent);

}  // namespace formwiz::cli
