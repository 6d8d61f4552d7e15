// `formwiz script`: a script plays the editor and the person at the dialogs.
// It is read and checked as a whole first (ParseScript), so that a mistake
// in step 20 is found before step 1 has shown anything; then RunScript sets
// up a host, makes the calls, feeds the dialogs the user's actions and gives
// the transcript. The format is told in SCRIPTING.md.
#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "component/failure.h"
#include "component/host_roles.h"
#include "host/page_document.h"
#include "toolkit/input.h"

namespace formwiz::script {

// Key order as written, in scripts and transcripts alike.
using Json = nlohmann::ordered_json;

// What is wrong with a script: one line, "<where>: <problem>", where is
// "script", "host.<key>..." or "steps[<n>]".
class ScriptError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A page object as it stands before the first call.
struct ObjectSpec {
  std::optional<std::string> display_name;
  std::optional<std::string> html_source;
  std::optional<Variant> html_data;
  std::optional<Failure> html_data_fault;  // reading HTMLData fails so
  std::optional<std::vector<uint8_t>> html_picture;
};

struct HostSpec {
  // The definition's text, from `impl` or read from `implFile`; it holds an
  // `impl` element, which was checked.
  std::optional<std::string> impl;
  // `implFile`, resolved against the script's folder.
  std::optional<std::filesystem::path> impl_file;
  std::optional<std::string> display_name;
  std::optional<std::string> path;
  // Files for the temporary folder, by name relative to it.
  std::map<std::string, std::vector<uint8_t>> files;
  std::vector<ObjectSpec> objects;
  host::Faults faults;
};

struct Step {
  enum class Kind { kCall, kDo, kSnapshot };
  Kind kind = Kind::kDo;
  // kCall.
  bool on_open = false;  // else OnCommand
  int instance = 0;
  int object = 0;  // OnOpen only
  // kDo.
  tk::UserAction action;
  // The step as written, for the transcript.
  Json source;
};

struct Script {
  HostSpec host;
  std::vector<Step> steps;
};

// Parses and checks a whole script; a relative implFile is taken from
// `base_dir`. Throws ScriptError.
Script ParseScript(std::string_view text,
                   const std::filesystem::path& base_dir);

// Parses and checks the `steps` list of a script alone, as ParseScript does;
// `host_objects` page objects exist before the first call. For a caller that
// holds the list as JSON already: written out and read again, a list nested
// very deeply would take the writer's recursion to the end of the stack.
// Throws ScriptError.
std::vector<Step> ParseSteps(const Json& steps, size_t host_objects);

// Runs `script` and gives the transcript: events, impl, objects. Each run has
// a thread of its own, so the dialogs, the object registry and the Ui start
// as they do in a fresh editor process, whatever ran before in this one.
Json RunScript(const Script& script);

// The whole command: parse, run, print the transcript to `out`. Gives 0 when
// the script ran to its end and 2, with one line on `err`, when it is
// invalid. `name` names the script in that line.
int RunScriptText(std::string_view text, const std::filesystem::path& base_dir,
                  std::string_view name, std::ostream& out, std::ostream& err);

// The full names of the controls that either dialog has ("cmdNav(3)").
const std::vector<std::string>& DialogControlNames();

}  // namespace formwiz::script
