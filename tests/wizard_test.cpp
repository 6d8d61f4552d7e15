// frmWizard's frame and its first three steps, driven as a person drives
// them: through modal shows whose input goes through the toolkit's one
// entry point, so disabled buttons and parked panels refuse input here too.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "actionoptions/frm_action_options.h"
#include "component/strings.h"
#include "component_test_support.h"
#include "formdoc/kelxml.h"
#include "wizard/frm_wizard.h"

namespace formwiz {
namespace {

using Kind = tk::UserAction::Kind;
using ::testing::ElementsAre;

// Two form choices and a stored form; `stored` goes into the form.
std::string Definition(const std::string& stored = "",
                       const std::string& action = "") {
  return "<impl><forminfo><desc>D1</desc><response>R1</response>"
         "<emailsubject>S1</emailsubject></forminfo><forminfo><desc>D2</desc>"
         "<response>R2</response><emailsubject>S2</emailsubject></forminfo>"
         "<form uitype=\"orb\" defaultaction=\"https://mail.example\"" +
         action + ">" + stored +
         "<table><section name=\"A\" included=\"yy\"/></table></form></impl>";
}
std::string Hidden(const std::string& name, const std::string& value) {
  return "<input type=\"hidden\" name=\"" + name + "\" value=\"" + value +
         "\"/>";
}

class WizardTest : public ::testing::Test {
 protected:
  ~WizardTest() override { wiz.Unload(); }

  // Loads the wizard afresh and prepares a run on `xml`.
  void Start(bool from_scratch, const std::string& xml = Definition()) {
    wiz.Unload();
    impl = FindElementInXml(xml, "impl");
    wiz.Load();
    wiz.SetFromScratch(from_scratch);
    wiz.SetImpl(impl);
  }
  // Shows the wizard modally with `script` as the person's input.
  void Run(PersonUi::Script script) {
    ui.scripts["frmWizard"].push_back(std::move(script));
    wiz.ShowModal(nullptr);
  }
  // The one panel on show, then Back, Next and Finish: "1:B-F". A panel
  // state that disagrees with nCurStep shows as "?".
  std::string Nav() {
    std::string shown = "?";
    int open = 0;
    for (int i = 0; i < 4; ++i) {
      tk::Control& panel = wiz.Ctl("fraStep", i);
      if (panel.Enabled() || panel.Left() > tk::kParkedLeft) ++open;
      if (panel.Enabled() && panel.Left() == 0 && i == wiz.nCurStep) {
        shown = std::to_string(i);
      }
    }
    if (open != 1) shown = "?";
    auto flag = [&](int i, char c) {
      return wiz.Ctl("cmdNav", i).Enabled() ? c : '-';
    };
    return shown + ":" + flag(2, 'B') + flag(3, 'N') + flag(4, 'F');
  }
  std::string Text(const char* name) { return wiz.Ctl(name).Text(); }
  std::string Desc() { return wiz.Ctl("lblFormDesc").Caption(); }

  frmWizard& wiz = frmWizard::Instance();
  frmActionOptions& opts = frmActionOptions::Instance();
  PersonUi ui;
  ScopedUi scope{ui};
  KelXmlElement impl;
};

TEST_F(WizardTest, FormChoiceSetsDescriptionResponseAndSubject) {
  Start(true);
  for (tk::Control* c : wiz.Controls()) EXPECT_FALSE(c->IsDefault());
  auto choice = [&] {
    return std::to_string(wiz.nFormIndex) + Desc() + Text("txtResponse") +
           opts.strEmailSubj;
  };
  EXPECT_EQ(choice(), "1D1R1S1");
  Run([&](tk::Form& f) {
    Do(f, Kind::kHover, "optForm(1)");  // shows, does not choose
    EXPECT_EQ(choice(), "1D2R1S1");
    Do(f, Kind::kHover, "fraStep(0)");
    EXPECT_EQ(choice(), "1D1R1S1");
    Click(f, "cmdNav(3)");
    Do(f, Kind::kType, "txtEmailAddr", "a");
    Click(f, "cmdNav(3)");
    Do(f, Kind::kType, "txtResponse", " typed");
    EXPECT_EQ(choice(), "1D1R1 typedS1");
    EXPECT_TRUE(Click(f, "optForm(1)").ignored);  // parked with its panel
    Click(f, "cmdNav(2)");
    Click(f, "cmdNav(2)");
    Click(f, "optForm(1)");
    EXPECT_EQ(choice(), "2D2R2S2");
  });
}

TEST_F(WizardTest, NextBackAndFinishFollowTheAddress) {
  Start(true);
  struct Step {
    Kind kind;
    const char* control;
    const char* text;
    const char* nav;
  };
  const Step steps[] = {
      {Kind::kClick, "cmdNav(3)", "", "1:B--"},
      {Kind::kType, "txtEmailAddr", "a", "1:BNF"},
      {Kind::kBackspace, "txtEmailAddr", "", "1:B--"},
      {Kind::kClick, "cmdNav(2)", "", "0:-N-"},
      {Kind::kClick, "cmdNav(3)", "", "1:B--"},
      {Kind::kType, "txtEmailAddr", "me@example.org", "1:BNF"},
      {Kind::kClick, "cmdNav(2)", "", "0:-NF"},
      {Kind::kClick, "cmdNav(3)", "", "1:BNF"},
      {Kind::kClick, "cmdNav(3)", "", "2:BNF"},
      {Kind::kClear, "txtEmailAddr", "", "2:BNF"},  // parked: ignored
      {Kind::kClick, "cmdNav(3)", "", "3:B-F"},
      {Kind::kClick, "cmdNav(3)", "", "3:B-F"},  // disabled: ignored
      {Kind::kClick, "cmdNav(2)", "", "2:BNF"},
  };
  Run([&](tk::Form& f) {
    for (const Step& s : steps) {
      Do(f, s.kind, s.control, s.text);
      EXPECT_EQ(Nav(), s.nav) << s.control;
      EXPECT_EQ(wiz.bFinishAllowed, Nav().back() == 'F') << s.control;
    }
    EXPECT_EQ(wiz.Ctl("lstFields").ListCount(), 1);
  });
  EXPECT_EQ(opts.strEmailAddr, "me@example.org");
}

// What Finish writes into the form, in its order, is a scenario
// (stored-definition-reopened.json); so are the Results of Cancel, Escape
// and the close box on each step, one run after another, with nothing
// written (cancel-on-each-step.json). Cancel ends the run below.

// Everything a person can see of the dialog.
std::string Screen(const tk::Form& form) {
  std::string s;
  for (const tk::Control* c : form.Controls()) {
    s += c->Name() + c->Caption() + c->Text() + std::to_string(c->Left()) +
         (c->Enabled() ? "e" : "d") + (c->Visible() ? "v" : "h") +
         (c->Value() ? "1" : "0") + ";";
  }
  return s;
}

TEST_F(WizardTest, F1AndHandlerFailuresLeaveTheDialogAsItWasCancelUnloads) {
  Start(true);
  wiz.Ctl("txtResponse").on_change = [] { Raise(err::kOutOfMemory); };
  Run([&](tk::Form& f) {
    Click(f, "cmdNav(3)");
    Do(f, Kind::kType, "txtEmailAddr", "a");
    const std::string before = Screen(wiz);
    Do(f, Kind::kKey, "", "", tk::kKeyF1);
    EXPECT_TRUE(wiz.bHelpRequested);
    EXPECT_EQ(Screen(wiz), before);
    Click(f, "cmdNav(3)");
    Do(f, Kind::kType, "txtResponse", "x");
    EXPECT_TRUE(f.Shown());
    Click(f, "cmdNav(1)");
  });
  EXPECT_THAT(ui.boxes,
              ElementsAre(RecordingUi::Box{
                  "Error", "Internal Error in Form Wizard: 204\r\n7: " +
                               std::string(RuntimeDescription(7))}));
  EXPECT_EQ(wiz.Result(), 2);
  EXPECT_FALSE(wiz.Loaded() || opts.Loaded());
  EXPECT_TRUE(wiz.elemImpl.IsNull());
}

TEST_F(WizardTest, EditReadsTheStoredFormBackOverTheDefaults) {
  Start(false, Definition(Hidden("qln_Subject", "Stored subject") +
                          Hidden("qln_OKMessage", "Stored reply") +
                          Hidden("qln_FormIndex", "2")));
  EXPECT_TRUE(wiz.Ctl("optForm", 1).Value());
  EXPECT_EQ(wiz.nFormIndex, 2);
  EXPECT_EQ(Text("txtResponse") + "|" + opts.strEmailSubj,
            "Stored reply|Stored subject");
  // Finish is allowed although the stored form has no address.
  EXPECT_EQ(Nav(), "3:B-F");
  Run([&](tk::Form& f) {
    Click(f, "cmdNav(2)");
    Click(f, "cmdNav(2)");
    EXPECT_EQ(Nav(), "1:B-F");
    Do(f, Kind::kType, "txtEmailAddr", "a");
    Do(f, Kind::kClear, "txtEmailAddr");
    EXPECT_EQ(Nav(), "1:B--");
  });

  // Without a stored index no form is chosen, and the rest reads as usual.
  Start(false, Definition(Hidden("qln_EmailTo", "a@b")));
  EXPECT_FALSE(wiz.Ctl("optForm", 0).Value() || wiz.Ctl("optForm", 1).Value());
  EXPECT_EQ(wiz.nFormIndex, 0);
  EXPECT_EQ(Desc(), "Description of form");
  EXPECT_EQ(Text("txtEmailAddr"), "a@b");

  // An index with no option fails into the caller's trap.
  EXPECT_THROW(Start(false, Definition(Hidden("qln_FormIndex", "3"))), Failure);
}

// The address going to and from the options dialog is a scenario
// (action-options-from-wizard.json).
TEST_F(WizardTest, AStoredScriptActionShowsOnceTheOptionsDialogClosed) {
  // A stored script action: the e-mail wording stays until the options
  // dialog has been closed once.
  Start(false, Definition(Hidden("qln_FormIndex", "1"),
                          " action=\"https://cgi.example/x\""));
  ui.scripts["frmActionOptions"].push_back(
      [](tk::Form& f) { Click(f, "cmdOK"); });
  Run([&](tk::Form& f) {
    Click(f, "cmdNav(2)");
    Click(f, "cmdNav(2)");
    EXPECT_TRUE(wiz.Ctl("txtEmailAddr").Visible());
    Click(f, "cmdActionOptions");
    EXPECT_EQ(wiz.Ctl("lblActionDesc").Caption(),
              LoadResString(kStrActionCustom));
    EXPECT_FALSE(wiz.Ctl("lblEmailAddr").Visible() ||
                 wiz.Ctl("txtEmailAddr").Visible());
    EXPECT_EQ(Nav(), "1:BNF");
  });
}

TEST_F(WizardTest, SaveSettingsFailsQuietlyWithoutFormAndReportsFailures) {
  Start(true, "<impl><forminfo/></impl>");
  EXPECT_FALSE(wiz.SaveSettings());
  EXPECT_TRUE(ui.boxes.empty());
  wiz.elemImpl = KelXmlElement();
  EXPECT_FALSE(wiz.SaveSettings());
  EXPECT_THAT(ui.boxes,
              ElementsAre(RecordingUi::Box{
                  "Error", "Internal Error in Form Wizard: 201\r\n91: " +
                               std::string(RuntimeDescription(91))}));
}

}  // namespace
}  // namespace formwiz
