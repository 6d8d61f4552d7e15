// What the tests share: a person at the dialogs, the peer that reaches the
// steps of clsFormWiz behind the dialogs, a fixture with a page of the host
// stand-in, that person and a guard that starts down, hostile text, and runs
// of the built program.
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
#include <string_view>
#include <vector>

#include "actionoptions/frm_action_options.h"
#include "component/cls_form_wiz.h"
#include "component/identity.h"
#include "formdoc/kelxml.h"
#include "host/page_document.h"
#include "script/script.h"
#include "toolkit/input.h"
#include "toolkit/ui.h"

namespace formwiz {

// One thing a person does, through the toolkit's one input entry point.
inline tk::InputOutcome Do(tk::Form& form, tk::UserAction::Kind kind,
                           std::string control = "", std::string text = "",
                           int key = 0) {
  return tk::ApplyUserInput(
      form, {kind, std::move(control), std::move(text), 0, false, 1, key});
}
inline tk::InputOutcome Click(tk::Form& form, std::string control) {
  return Do(form, tk::UserAction::Kind::kClick, std::move(control));
}

// The person at the dialogs: each modal show is noted in `shown` and runs the
// next script queued for its dialog, or else `act`; a dialog still on show
// after it is closed through its frame.
class PersonUi : public RecordingUi {
 public:
  using Script = std::function<void(tk::Form&)>;
  void RunModal(tk::Form& form, tk::Form*) override {
    shown.push_back(form.name());
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
  std::vector<std::string> shown;
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

  // The message boxes shown so far: their texts, or "title: text".
  std::vector<std::string> Texts(bool titled = false) const {
    std::vector<std::string> texts;
    for (const auto& box : ui.boxes) {
      texts.push_back((titled ? box.title + ": " : "") + box.text);
    }
    return texts;
  }

  // A text selection given the page, as OnCommand makes one.
  std::shared_ptr<TextSelection> Selection() {
    auto selection = AsRole<TextSelection>(CreateObject(kTextSelectionProgId));
    selection->PutQuillanDO(page);
    return selection;
  }

  PersonUi ui;
  ScopedUi scoped_ui{ui};
  std::shared_ptr<host::PageDocument> page =
      std::make_shared<host::PageDocument>();
};

// `s` `n` times.
inline std::string Repeat(std::string_view s, size_t n) {
  std::string out;
  out.reserve(s.size() * n);
  for (size_t i = 0; i < n; ++i) out += s;
  return out;
}

// Ten levels of ten references each: 10^9 copies of "lol" if expanded.
inline std::string BillionLaughs() {
  std::string doc = "<!DOCTYPE impl [<!ENTITY l0 \"lol\">";
  for (int i = 1; i < 10; ++i) {
    doc += "<!ENTITY l" + std::to_string(i) + " \"" +
           Repeat("&l" + std::to_string(i - 1) + ";", 10) + "\">";
  }
  return doc + "]><impl><form v=\"&l9;\">&l9;</form></impl>";
}

struct NamedXml {
  const char* name;
  std::string xml;
};

// Documents that must be refused whole: entities of every kind, nesting
// beyond the cap, bytes that are no XML character in UTF-8, and what is not
// one well-formed document.
inline std::vector<NamedXml> Unreadable() {
  using namespace std::string_literals;
  return {
      {"billion laughs", BillionLaughs()},
      {"external entity",
       "<!DOCTYPE impl [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>"
       "<impl><form>&x;</form></impl>"},
      {"parameter entity",
       "<!DOCTYPE impl [<!ENTITY % p SYSTEM \"file:///etc/passwd\"> %p;]>"
       "<impl><form/></impl>"},
      {"external DTD",
       "<!DOCTYPE impl SYSTEM \"file:///etc/passwd\"><impl><form/></impl>"},
      {"undeclared entity in an attribute", "<impl><form v=\"&x;\"/></impl>"},
      {"10^6 nested elements",
       "<impl>" + Repeat("<a>", 1000000) + Repeat("</a>", 1000000) + "</impl>"},
      {"invalid byte in an attribute", "<impl><form v=\"\xFF\"/></impl>"},
      {"overlong '<' in an attribute", "<impl><form v=\"\xC0\xBC\"/></impl>"},
      {"overlong 3-byte '<'", "<impl>\xE0\x80\xBC</impl>"},
      {"overlong 4-byte '<'", "<impl>\xF0\x80\x80\xBC</impl>"},
      {"surrogate pair as two 3-byte forms",
       "<impl>\xED\xA0\xBD\xED\xB8\x80</impl>"},
      {"low surrogate in an attribute", "<impl v=\"\xED\xBF\xBF\"/>"},
      {"beyond U+10FFFF", "<impl>\xF4\x90\x80\x80</impl>"},
      {"U+FFFE", "<impl>\xEF\xBF\xBE</impl>"},
      {"sequence cut short", "<impl>\xE2\x82</impl>"},
      {"sequence cut short in a name", "<impl\xE2\x82/>"},
      {"surrogate by reference", "<impl>&#xD83D;</impl>"},
      {"NUL by reference", "<impl v=\"&#0;\"/>"},
      {"NUL in an attribute", "<impl v=\"\0\"/>"s},
      {"NUL after the end", "<impl/>\0"s},
      {"NUL in text", "<a>\0</a>"s},
      {"bad continuation byte", "<a>\xC3\x28</a>"},
      {"overlong '/' in text", "<a>\xC0\xAF</a>"},
      {"high surrogate alone in text", "<a>\xED\xA0\x80</a>"},
      {"control character", "<a>\x01</a>"},
      {"undeclared entity in text", "<l>&nope;</l>"},
      {"a DOCTYPE of no entity", "<!DOCTYPE impl><impl/>"},
      {"one level beyond the cap",
       Repeat("<a>", KelXmlDocument::kMaxDepth + 1) +
           Repeat("</a>", KelXmlDocument::kMaxDepth + 1)},
      {"definition cut short", "<impl><forminfo/><form><input"},
      {"end tag that closes nothing", "<impl><form></impl>"},
      {"two top elements", "<a/><b/>"},
      {"text alone", "just text"},
  };
}

// Files of this test process's own: ctest runs tests in parallel processes
// that share the temporary folder.
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

// Runs `args` (args[0] a path) with `input` on standard input, under
// timeout(1) so that a stuck program ends after `seconds`. Output goes
// through files, which unlike pipes cannot fill up and stall it.
struct ProgramRun {
  int status;  // -1 when it did not exit normally
  std::string out, err;
};
inline ProgramRun RunProgram(std::vector<std::string> args,
                             const std::string& input = "", int seconds = 120) {
  args.insert(args.begin(),
              {"/usr/bin/timeout", "-k", "5", std::to_string(seconds)});
  const std::string in = WriteTemp("stdin", input);
  const std::string out = TempPath("stdout"), err = TempPath("stderr");
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(open(in.c_str(), O_RDONLY), 0);
    dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
    dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
    execv(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadAll(out),
          ReadAll(err)};
}
// The built program (FORMWIZ_BIN, set by ctest).
inline std::string FormwizBin() {
  const char* bin = std::getenv("FORMWIZ_BIN");
  return bin != nullptr ? bin : "";
}
inline ProgramRun RunFormwiz(std::vector<std::string> args,
                             const std::string& input = "") {
  args.insert(args.begin(), FormwizBin());
  return RunProgram(std::move(args), input);
}

// Tests of the program; skipped when there is none to run. The files and
// folders they made go with them.
class ProgramTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (FormwizBin().empty()) {
      GTEST_SKIP() << "FORMWIZ_BIN is not set; run through ctest";
    }
  }
  void TearDown() override {
    const std::string mine = TempPath("");
    for (const auto& entry :
         std::filesystem::directory_iterator(::testing::TempDir())) {
      if (entry.path().string().starts_with(mine)) {
        std::filesystem::remove_all(entry.path());
      }
    }
  }
};

}  // namespace formwiz
