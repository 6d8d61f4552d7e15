// frmWizard's frame and its first three steps, driven as a person drives
// them: through modal shows whose input goes through the toolkit's one
// entry point, so disabled buttons and parked panels refuse input here too.
// Then its last step, the field list and the boxes of the current field,
// whose event chains between the controls are the behaviour: those tests
// drive the controls and read the tree.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "actionoptions/frm_action_options.h"
#include "component/failure.h"
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
  // An index with no option is OpenStoredTest's (component_test).
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

// --- step 3: the fields ----------------------------------------------------

// A field in front of the table, fields in it with a hidden one and HTML
// between them, and one behind it, which the walk never reaches.
constexpr char kOrb[] =
    "<impl><form uitype='orb'> <section name='Lead' included='yy'/> <table> "
    "<section name='A' prompt='Your A:' size='30' maxlength='60' "
    "included='yn'/> <section name='H' included='hh'/> <section name='B' "
    "included='ny'/> <tr/> <section name='C' included='yy'/> </table> "
    "<section name='Behind' included='yy'/></form></impl>";
// Rows A, B, C with the hidden H between A and B.
constexpr char kFlat[] =
    "<impl><form><section name='A' included='y'/> <section name='H' "
    "included='h'/> <section name='B'/> <section name='C' included='y'/>"
    "</form></impl>";

class FieldStepTest : public WizardTest {
 protected:
  // A fresh wizard on `xml`, step 3 loaded for `index`, row `row` current.
  void Open(const std::string& xml, int16_t index = 1, int row = 0) {
    wiz.Unload();
    wiz.Load();
    ASSERT_TRUE(doc.LoadXml(xml));
    wiz.elemImpl = doc.Root().FirstChild();
    wiz.nFormIndex = index;
    wiz.LoadFieldList();
    if (row >= 0) Ctl("lstFields").SetListIndex(row);
  }
  tk::Control& Ctl(const char* name, int index = -1) {
    return wiz.Ctl(name, index);
  }
  void Type(tk::Control& box, const std::string& text) {
    for (char c : text) box.SetText(box.Text() + c);
  }
  // "text+" ticked, "text-" not, the current row in brackets, space-joined.
  // Checks that row r and colFields[r] stand for the same field.
  std::string Rows() {
    tk::Control& lst = Ctl("lstFields");
    EXPECT_EQ(wiz.colFields.size(), static_cast<size_t>(lst.ListCount()));
    std::string rows;
    for (int r = 0; r < lst.ListCount(); ++r) {
      EXPECT_EQ(wiz.colFields.at(r).GetAttribute("name"), lst.List(r));
      std::string row = lst.List(r) + (lst.Selected(r) ? "+" : "-");
      rows += (r ? " " : "") + (r == lst.ListIndex() ? "[" + row + "]" : row);
    }
    return rows;
  }
  // Each field node in document order as "name@parent", or one attribute of
  // each, space-joined.
  std::string Tree(const char* attr = nullptr) {
    std::string fields;
    const KelXmlNodeList all = wiz.elemImpl.GetElementsByTagName("section");
    for (int32_t i = 0; i < all.Count(); ++i) {
      const KelXmlNode f = all.Item(i);
      fields += (i ? " " : "") + (attr ? f.GetAttribute(attr)
                                       : f.GetAttribute("name") + "@" +
                                             f.ParentNode().TagName());
    }
    return fields;
  }

  KelXmlDocument doc;
};

TEST_F(FieldStepTest, ListsTheReachedFieldsAndWritesNothing) {
  const std::string hidden_first =
      "<impl><form><section name='X' included='hy'/></form></impl>";
  const std::tuple<std::string, int16_t, const char*> cases[] = {
      // The walk of the first choice is a scenario
      // (field-moves-renames-sizes.json).
      {kOrb, 2, "[Lead+] A- B+ C+"},
      {hidden_first, 1, ""},
      {hidden_first, 2, "[X+]"},
      {"<impl><form><section included='y'/><section name='S' included='y'/>"
       "<section name='T'/></form></impl>",
       2, "[S-] T-"},
      {"<impl><form uitype='sectioned'><section name='P' included='y'/>"
       "<table><section name='Q' included='y'/></table></form></impl>",
       1, "[P+]"},
      // One table is entered, once.
      {"<impl><form uitype='orb'><table><table><section name='D'/></table>"
       "<section name='E'/></table></form></impl>",
       1, "[E-]"},
  };
  for (const auto& [xml, index, rows] : cases) {
    SCOPED_TRACE(xml + " @" + std::to_string(index));
    Open(xml, index, -1);
    EXPECT_EQ(Rows(), rows);
    // Row 0 is current and shown in the boxes.
    EXPECT_EQ(Ctl("txtFieldName").Text(),
              *rows ? Ctl("lstFields").List(0) : "");
    Ctl("lstFields").SetListIndex(-1);
    tk::RunEvent(Ctl("cmdShift", 1).on_click);  // No current row: nothing.
    EXPECT_EQ(wiz.elemImpl.Xml(), FindElementInXml(xml, "impl").Xml());
  }
  ASSERT_TRUE(doc.LoadXml("<impl/>"));
  wiz.elemImpl = doc.Root().FirstChild();
  EXPECT_THROW(wiz.LoadFieldList(), Failure);  // A stored form without form.
}

// Ticks, and moves into the table, are a scenario
// (field-moves-renames-sizes.json).
TEST_F(FieldStepTest, MovesPassOneListedFieldAndTakeItsParent) {
  const struct {
    const char* xml;
    int row;
    int button;
    const char* tree;  // empty: nothing moves
    const char* rows;
  } cases[] = {
      {kFlat, 1, 0, "B@form A@form H@form C@form", "[B-] A+ C+"},
      {kFlat, 0, 1, "H@form B@form A@form C@form", "B- [A+] C+"},
      // C is the last child: B is appended behind it.
      {kFlat, 1, 1, "A@form H@form C@form B@form", "A+ C+ [B-]"},
      {kOrb, 1, 0, "A@form Lead@form H@table B@table C@table Behind@form",
       "[A+] Lead+ B- C+"},
      {kFlat, 0, 0, "", ""},
      {kFlat, 2, 1, "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.row) + "," + std::to_string(c.button));
    Open(c.xml, 1, c.row);
    tk::RunEvent(Ctl("cmdShift", c.button).on_click);
    if (*c.tree == '\0') {
      EXPECT_EQ(wiz.elemImpl.Xml(), FindElementInXml(c.xml, "impl").Xml());
      continue;
    }
    EXPECT_EQ(Tree(), c.tree);
    EXPECT_EQ(Rows(), c.rows);
    const int current = Ctl("lstFields").ListIndex();
    // The boxes still show the moved field.
    EXPECT_EQ(Ctl("txtFieldName").Text(), Ctl("lstFields").List(current));
    wiz.LoadFieldList();  // A rebuild from the tree shows the same list.
    Ctl("lstFields").SetListIndex(current);
    EXPECT_EQ(Rows(), c.rows);
  }
}

TEST_F(FieldStepTest, RenamesNeverEmptyANameAndKeepTheRow) {
  Open(kOrb, 1, 1);
  tk::Control& name = Ctl("txtFieldName");
  name.SetText("");
  Type(name, "Mail");
  EXPECT_EQ(Tree("name") + " " + Tree("included"),
            "Lead Mail H B C Behind yy yn hh ny yy yy");
  EXPECT_EQ(Rows(), "Lead+ [Mail+] B- C+");
  name.SetText("");  // Leaving and coming back restores the name.
  Ctl("lstFields").SetListIndex(2);
  name.SetText("Mail");  // A duplicate is accepted.
  Ctl("lstFields").SetListIndex(1);
  EXPECT_EQ(name.Text(), "Mail");
  EXPECT_EQ(Rows(), "Lead+ [Mail+] Mail- C+");
}

TEST_F(FieldStepTest, SizeBoxesFollowTheAttributesPresent) {
  // boxes: "caption=text" of each shown box
  const std::pair<const char*, const char*> cases[] = {
      // Each attribute alone and the pairs are a scenario
      // (field-moves-renames-sizes.json).
      {"size=''", "Field Width:=|"},
      {"", "|"},
      // Of a pair the later wins the box, and nothing is copied.
      {"size='1' cols='2' maxlength='3' rows='4'", "Width:=2|Height:=4"},
  };
  auto shown = [&](int i) -> std::string {
    tk::Control& box = Ctl("txtParam", i);
    tk::Control& label = Ctl(i == 1 ? "lblParam1" : "lblParam2");
    EXPECT_EQ(box.Visible(), label.Visible());
    return box.Visible() ? label.Caption() + "=" + box.Text() : "";
  };
  for (const auto& [attrs, boxes] : cases) {
    SCOPED_TRACE(attrs);
    const std::string xml = std::string("<impl><form><section name='F' ") +
                            attrs + "/><section name='G'/></form></impl>";
    Open(xml, 1, 1);
    Ctl("lstFields").SetListIndex(0);
    EXPECT_EQ(shown(1) + "|" + shown(2), boxes);
    EXPECT_EQ(wiz.elemImpl.Xml(), FindElementInXml(xml, "impl").Xml());
  }
  // The pair's box edits the attribute that won it; a prompt can be empty.
  Ctl("txtParam", 1).SetText("");
  Type(Ctl("txtParam", 1), "7x");
  Ctl("txtFieldPrompt").SetText("P");
  Ctl("txtFieldPrompt").SetText("");
  EXPECT_EQ(Tree("cols") + Tree("size"), "7x 1 ");
  EXPECT_FALSE(wiz.colFields[0].GetAttributeNode("prompt").IsNull());
  Ctl("lstFields").SetListIndex(-1);  // Typed text now goes nowhere.
  Type(Ctl("txtParam", 2), "9");
  Type(Ctl("txtFieldName"), "N");
  Type(Ctl("txtFieldPrompt"), "Q");
  EXPECT_EQ(Tree("prompt") + Tree("rows") + Tree("name"), " 4 F G");
}

}  // namespace
}  // namespace formwiz
