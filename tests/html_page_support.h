// What the checks of the produced HTML in outside programs (a browser, the
// Nu Html Checker) share: page files made as a person makes them, with
// `formwiz page` and a script of the person's actions at the wizard, and a
// way to run a program that can never hang the suite.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "script/script.h"

namespace formwiz::html_check {

namespace fs = std::filesystem;
using script::Json;

inline std::string Slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A tool's path: the environment's variable `name` when set, else the path
// the build gave (empty in the sanitizer build, which leaves these out).
inline std::string ToolPath(const char* name, const char* built_in) {
  const char* set = std::getenv(name);
  return set != nullptr ? set : built_in;
}

// A fresh folder, removed with this.
class ScratchDir {
 public:
  ScratchDir() : path_(fs::temp_directory_path() / "formwiz-html-XXXXXX") {
    std::string name = path_.string();
    if (mkdtemp(name.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed";
    path_ = name;
  }
  ~ScratchDir() { fs::remove_all(path_, ignored_); }
  const fs::path& path() const { return path_; }
  fs::path Write(const std::string& name, std::string_view text) const {
    std::ofstream(path_ / name, std::ios::binary) << text;
    return path_ / name;
  }

 private:
  fs::path path_;
  std::error_code ignored_;
};

struct RunResult {
  int status = -1;  // -1 when it did not exit normally
  std::string out, err;
};

// Runs `argv` (argv[0] a path) under `timeout` so that a stuck program ends
// after `seconds`; output goes through files, which unlike pipes cannot fill
// up and stall it.
inline RunResult RunBounded(int seconds, std::vector<std::string> argv,
                            const ScratchDir& dir) {
  argv.insert(argv.begin(),
              {"/usr/bin/timeout", "-k", "5", std::to_string(seconds)});
  const std::string out = (dir.path() / "run.out").string();
  const std::string err = (dir.path() / "run.err").string();
  std::vector<char*> args;
  for (std::string& arg : argv) args.push_back(arg.data());
  args.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(open("/dev/null", O_RDONLY), 0);
    dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
    dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
    execv(args[0], args.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(out), Slurp(err)};
}

// A person's actions, as `formwiz page insert --script` takes them: each
// row is the action, the control and the text typed or the row selected.
inline Json Steps(const std::vector<std::vector<std::string>>& rows) {
  Json steps = Json::array();
  for (const auto& row : rows) {
    Json step = {{"do", row[0]}, {"control", row[1]}};
    if (row[0] == "select") step["row"] = std::stoi(row[2]);
    if (row[0] == "type") step["text"] = row[2];
    steps.push_back(step);
  }
  return steps;
}

// Picks form choice `choice` of the bundled orb, gives an address and
// finishes, leaving everything else as offered.
inline Json ChoiceSteps(int choice) {
  return Steps({{"click", "optForm(" + std::to_string(choice) + ")"},
                {"click", "cmdNav(3)"},
                {"type", "txtEmailAddr", "me@example.org"},
                {"click", "cmdNav(4)"}});
}

// Typed into the wizard, each would change the page if it ran or became
// markup: the title, an element with the id "pwned", an event handler.
inline const std::string kName = R"("><script>document.title='pwned'</script>)";
inline const std::string kPrompt =
    R"(<img src=x onerror="document.title='pwned'"><b id=pwned>&amp;</b>)";
inline const std::string kResponse =
    R"(</textarea>"><script>document.title='pwned'</script>&lt;)";

// The comment form with the response, the first field's name and its prompt
// typed as above, and Comments (a text area) moved up past Phone and
// Subject, so that a text area that swallowed what follows it would lose
// Subject. The included fields end in the order kName, Email, Comments,
// Subject.
inline Json HostileSteps() {
  // clang-format off
  return Steps({
      {"click", "optForm(0)"}, {"click", "cmdNav(3)"},
      {"type", "txtEmailAddr", "me@example.org"}, {"click", "cmdNav(3)"},
      {"clear", "txtResponse"}, {"type", "txtResponse", kResponse},
      {"click", "cmdNav(3)"}, {"select", "lstFields", "0"},
      {"clear", "txtFieldName"}, {"type", "txtFieldName", kName},
      {"clear", "txtFieldPrompt"}, {"type", "txtFieldPrompt", kPrompt},
      {"select", "lstFields", "5"}, {"click", "cmdShift(0)"},
      {"click", "cmdShift(0)"}, {"click", "cmdNav(4)"}});
  // clang-format on
}

// The formwiz program that ctest names; empty when run otherwise.
inline std::string FormwizBin() { return ToolPath("FORMWIZ_BIN", ""); }

// Why a check that runs `tool` (and formwiz) cannot run here, or empty.
inline std::string Missing(const std::string& tool) {
  if (tool.empty()) return "the sanitizer build leaves this check out";
  if (access(tool.c_str(), R_OK) != 0) return tool + " is absent: not run";
  if (FormwizBin().empty()) return "FORMWIZ_BIN is not set; run through ctest";
  return "";
}

// Makes page `name` in `dir`: a new page, the bundled orb inserted with the
// person's `steps`, exported. Gives the exported file, or an empty path
// after reporting the command that failed.
inline fs::path MakePage(const ScratchDir& dir, const std::string& name,
                         const Json& steps) {
  const std::string bin = FormwizBin();
  const std::string page = (dir.path() / (name + ".page")).string();
  const std::string html = (dir.path() / (name + ".html")).string();
  const std::string script = dir.Write(name + ".json", steps.dump()).string();
  const std::vector<std::vector<std::string>> commands = {
      {bin, "page", "new", page},
      {bin, "page", "insert", page, "--orb",
       FORMWIZ_SOURCE_DIR "/orbs/form/form.qlo", "--script", script},
      {bin, "page", "export", page, "-o", html}};
  for (const auto& command : commands) {
    const RunResult run = RunBounded(60, command, dir);
    if (run.status != 0) {
      ADD_FAILURE() << name << ": formwiz page " << command[2] << ": status "
                    << run.status << "\n"
                    << run.err;
      return {};
    }
  }
  return html;
}

}  // namespace formwiz::html_check
