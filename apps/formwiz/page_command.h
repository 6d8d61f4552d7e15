// `formwiz page`: the editor's side of a page, headless. A page file (plain
// HTML, see host/page.h) is made, listed, given paragraphs and form orbs,
// and its orbs are opened again, each command reading the file, doing one
// thing and writing it back.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "command.h"

namespace formwiz::cli {

struct PageOptions {
  // new, list, add-text, insert, open, delete, title, export
  std::string action;
  std::string file;
  std::string text;                   // add-text
  std::optional<size_t> at;           // add-text, insert: block index
  size_t block = 0;                   // open, delete
  std::string orb = "form";           // insert: a file or a bundled orb's name
  std::optional<std::string> script;  // insert, open: the person's actions
  std::string output = "-";           // export
  std::optional<std::string> title;   // title: the new one
};

// Registers `page` and its subcommands on `parent`.
Command AddPageCommand(CLI::App& parent);

// Runs one page subcommand. Gives kExitOk; kExitFailure when the file was
// refused or could not be written, or the component showed a message box
// (on stderr); kExitUsage when the arguments do not fit the page (a block
// that is not there) or the script is invalid.
int RunPage(const PageOptions& options);

}  // namespace formwiz::cli
