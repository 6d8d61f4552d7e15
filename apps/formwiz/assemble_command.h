// `formwiz assemble`: turns a form definition into the HTML form that the
// component would write into the page, without running the wizard.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

#include "command.h"

namespace formwiz::cli {

struct AssembleOptions {
  // An orb definition file (.qlo) or a stored definition: the first `impl`
  // element in it, at the top or nested, is the definition. "-" reads
  // standard input.
  std::string file;
  // The form choice; without it, the one stored in the form's qln_FormIndex.
  std::optional<int16_t> form_index;
};

// Registers `assemble` on `parent`.
Command AddAssembleCommand(CLI::App& parent);

// Assembles the definition in `options.file` the way a commit does and writes
// the HTML and a newline to `out`. Problems with the input are one line on
// `err`; the component's own reports go to stderr as message boxes. Gives
// kExitOk, or kExitFailure when the input was unusable or any report was
// shown (the HTML is still written when the commit would have written it).
int RunAssemble(const AssembleOptions& options, std::ostream& out,
                std::ostream& err);

}  // namespace formwiz::cli
