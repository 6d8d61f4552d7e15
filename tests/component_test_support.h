// What the tests share: a person at the dialogs, the peer that reaches the
// steps of clsFormWiz behind the dialogs, a fixture with a page of the host
// stand-in, a recording Ui and a guard that starts down, and a run of the
// built program.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "actionoptions/frm_action_options.h"
#include "component/cls_form_wiz.h"
#include "component/identity.h"
#include "host/page_document.h"
#include "toolkit/input.h"
#include "toolkit/ui.h"

namespace formwiz {

// One thing a person does, through the toolkit's one input entry point.
inline tk::InputOutcome Do(tk::Form& form, tk::UserAction::Kind kind,
                           std::string control = "", std::string text = "",
                           int key = 0) {
  tk::UserAction action;
  action.kind = kind;
  action.control = std::move(control);
  action.text = std::move(text);
  action.key = key;
  return tk::ApplyUserInput(form, action);
}
inline tk::InputOutcome Click(tk::Form& form, std::string control) {
  return Do(form, tk::UserAction::Kind::kClick, std::move(control));
}

// The person at the dialogs: each modal show runs the next script queued for
// its dialog, or else `act`; a dialog still on show after it is closed
// through its frame.
class PersonUi : public RecordingUi {
 public:
  using Script = std::function<void(tk::Form&)>;
  void RunModal(tk::Form& form, tk::Form*) override {
    Script script = act;
    if (auto& queue = scripts[form.name()]; !queue.empty()) {
      script = std::move(queue.front());
      queue.pop_front();
    }
    if (script) script(form);
    if (form.Shown()) form.CloseFromFrame();
  }
  std::map<std::string, std::deque<Script>> scripts;
  Script act;
};

// Stands in for the dialogs: sets the Result a dialog would leave and calls
// what follows it.
class clsFormWizTestPeer {
 public:
  static void SetResult(clsFormWiz& wiz, int32_t result) {
    wiz.mvarResult = result;
  }
  static void CommitOnCommand(clsFormWiz& wiz,
                              const std::shared_ptr<TextSelection>& selection,
                              const KelXmlElement& form,
                              const std::string& uitype) {
    wiz.CommitOnCommand(selection, form, uitype);
  }
  static void CommitStoredDefinition(clsFormWiz& wiz,
                                     const std::shared_ptr<HtmlObject>& object,
                                     const KelXmlElement& form) {
    wiz.CommitStoredDefinition(object, form);
  }
  static const KelXmlElement& Impl(const clsFormWiz& wiz) {
    return wiz.mvarImpl;
  }
  static const std::string& PlaceholderSrc(const clsFormWiz& wiz) {
    return wiz.mvarPlaceholderSrc;
  }
  static void SetPlaceholderSrc(clsFormWiz& wiz, std::string src) {
    wiz.mvarPlaceholderSrc = std::move(src);
  }
};

inline std::string InternalError(const std::string& rest) {
  return "Internal Error in Form Wizard: " + rest;
}

class ComponentTest : public ::testing::Test {
 protected:
  ComponentTest() {
    page->RegisterRoles();
    frmActionOptions::Instance().bInUse = false;
  }
  ~ComponentTest() override { frmActionOptions::Instance().bInUse = false; }

  // The texts of the message boxes shown so far.
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const auto& box : ui.boxes) texts.push_back(box.text);
    return texts;
  }
  // The message boxes shown so far, as "title: text".
  std::vector<std::string> Boxes() const {
    std::vector<std::string> boxes;
    for (const auto& box : ui.boxes)
      boxes.push_back(box.title + ": " + box.text);
    return boxes;
  }

  // A text selection given the page, as OnCommand makes one.
  std::shared_ptr<TextSelection> Selection() {
    auto selection = AsRole<TextSelection>(CreateObject(kTextSelectionProgId));
    selection->PutQuillanDO(page);
    return selection;
  }

  RecordingUi ui;
  ScopedUi scoped_ui{ui};
  std::shared_ptr<host::PageDocument> page =
      std::make_shared<host::PageDocument>();
};

// Runs the built program (FORMWIZ_BIN, set by ctest) with `args` and
// `input` on standard input. Output goes through files, which unlike pipes
// cannot fill up and stall it; they are this process's own, as ctest runs
// tests in parallel processes that share the temporary folder.
struct ProgramRun {
  int status;
  std::string out, err;
};
inline std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
inline std::string TempPath(const std::string& name) {
  return ::testing::TempDir() + "formwiz_" + std::to_string(getpid()) + "_" +
         name;
}
inline std::string WriteTemp(const std::string& name, const std::string& text) {
  const std::string path = TempPath(name);
  std::ofstream(path, std::ios::binary) << text;
  return path;
}
inline ProgramRun RunFormwiz(std::vector<std::string> args,
                             const std::string& input = "") {
  const char* bin = std::getenv("FORMWIZ_BIN");
  const std::string in = WriteTemp("stdin", input);
  const std::string out = TempPath("stdout"), err = TempPath("stderr");
  args.insert(args.begin(), bin);
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(open(in.c_str(), O_RDONLY), 0);
    dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
    dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
    execv(bin, argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadAll(out),
          ReadAll(err)};
}
// Tests of the program; skipped when there is none to run.
class ProgramTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::getenv("FORMWIZ_BIN") == nullptr) {
      GTEST_SKIP() << "FORMWIZ_BIN is not set; run through ctest";
    }
  }
  void TearDown() override {
    const std::string mine = TempPath("");
    for (const auto& entry :
         std::filesystem::directory_iterator(::testing::TempDir())) {
      if (entry.path().string().starts_with(mine)) {
        std::filesystem::remove(entry.path());
      }
    }
  }
};

}  // namespace formwiz
