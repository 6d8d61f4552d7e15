// frmActionOptions: its controls as designed, the settings to and from a
// form element, and the dialog as a person uses it through the toolkit's
// one input entry point.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "actionoptions/frm_action_options.h"
#include "component/utils.h"
#include "formdoc/kelxml.h"
#include "toolkit/input.h"
#include "toolkit/ui.h"

namespace formwiz {
namespace {

using tk::ControlKind;
using tk::UserAction;
using Kind = UserAction::Kind;

UserAction Act(Kind kind, const char* control = "") {
  UserAction a;
  a.kind = kind;
  a.control = control;
  return a;
}
UserAction Click(const char* control) { return Act(Kind::kClick, control); }
UserAction Type(const char* control, std::string text) {
  UserAction a = Act(Kind::kType, control);
  a.text = std::move(text);
  return a;
}
UserAction Clear(const char* control) { return Act(Kind::kClear, control); }
UserAction Backspace(const char* control, int count) {
  UserAction a = Act(Kind::kBackspace, control);
  a.count = count;
  return a;
}
UserAction Key(int key) {
  UserAction a = Act(Kind::kKey);
  a.key = key;
  return a;
}
UserAction CloseBox() { return Act(Kind::kClose); }

// A person at the dialog: each modal run applies the queued actions in order
// while the dialog is on show, and remembers what became of them.
class ActionsUi : public RecordingUi {
 public:
  void RunModal(tk::Form& form, tk::Form*) override {
    ++runs;
    outcomes.clear();
    for (const UserAction& a : actions) {
      if (!form.Shown()) break;
      outcomes.push_back(tk::ApplyUserInput(form, a));
    }
    actions.clear();
    left_open = form.Shown();
  }

  std::vector<UserAction> actions;
  std::vector<tk::InputOutcome> outcomes;  // one per action applied
  bool left_open = false;
  int runs = 0;
};

class ActionOptionsTest : public ::testing::Test {
 protected:
  ActionOptionsTest() { Reset(); }
  ~ActionOptionsTest() override { Reset(); }

  // The instance is shared by the thread: every test starts with no window
  // and the fields as on first reference.
  static void Reset() {
    frmActionOptions& d = frmActionOptions::Instance();
    d.Unload();
    d.mvarResult = 0;
    d.mvarModified = false;
    d.bInUse = false;
    d.bSendEmail = false;
    d.strEmailAddr.clear();
    d.strEmailSubj.clear();
    d.bHumanReadable = false;
    d.strActionURL.clear();
    d.strDefActionURL.clear();
  }

  // Loads the dialog and reads the settings from `xml`, as the callers do.
  KelXmlElement Open(const std::string& xml) {
    KelXmlElement form = FindElementInXml(xml, "form");
    EXPECT_FALSE(form.IsNull()) << xml;
    dlg.Load();
    dlg.GetOptionsFromForm(form);
    return form;
  }

  // Shows the dialog modally; the person does `actions`.
  void Show(std::vector<UserAction> actions) {
    ui.actions = std::move(actions);
    dlg.ShowModal(nullptr);
  }

  tk::Control& C(const char* name) { return dlg.Ctl(name); }

  frmActionOptions& dlg = frmActionOptions::Instance();
  ActionsUi ui;
  ScopedUi scope{ui};
};

constexpr const char* kMailForm =
    "<form action='/mail' defaultaction='/mail'>"
    "<input type='hidden' name='qln_EmailTo' value='a@b'/>"
    "<input type='hidden' name='qln_Subject' value='S'/>"
    "<input type='hidden' name='qln_SendMode' value='1'/></form>";

constexpr const char* kCustomCsvForm =
    "<form action='/cgi/x' defaultaction='/mail'>"
    "<input type='hidden' name='qln_EmailTo' value='a@b'/>"
    "<input type='hidden' name='qln_Subject' value='S'/>"
    "<input type='hidden' name='qln_SendMode' value='2'/></form>";

// --- the window as designed --------------------------------------------------

TEST_F(ActionOptionsTest, BuildsEveryControlAsDesignedInTabOrder) {
  const struct {
    const char* name;
    ControlKind kind;
    const char* caption_or_text;
    bool visible;
    bool value;  // options only
    int max_length;
    const char* container;  // null: the window
  } cases[] = {
      {"optActionEmail", ControlKind::kOption,
       "Send an e-mail with the form information", false, true, 0, nullptr},
      {"optActionCustom", ControlKind::kOption, "Other (CGI Script)", false,
       false, 0, nullptr},
      {"txtEmailAddr", ControlKind::kText, "", true, false, 256, nullptr},
      {"txtEmailSubj", ControlKind::kText, "", true, false, 256, nullptr},
      {"Label2", ControlKind::kLabel, "Form Action:", true, false, 0, nullptr},
      {"Label3", ControlKind::kLabel, "CGI Script URL:", false, false, 0,
       nullptr},
      {"Frame1", ControlKind::kFrame, "", true, false, 0, nullptr},
      {"optFormatHumanReadable", ControlKind::kOption,
       "Human-readable formatting", true, true, 0, "Frame1"},
      {"optFormatCSV", ControlKind::kOption,
       "Comma-separated (for database import)", true, false, 0, "Frame1"},
      {"txtActionURL", ControlKind::kText, "http://", false, false, 256,
       nullptr},
      {"Label8", ControlKind::kLabel, "Send the e-mail to:", true, false, 0,
       nullptr},
      {"Label9", ControlKind::kLabel, "E-mail subject:", true, false, 0,
       nullptr},
      {"cmdOK", ControlKind::kButton, "OK", true, false, 0, nullptr},
      {"cmdCancel", ControlKind::kButton, "Cancel", true, false, 0, nullptr},
  };
  dlg.Load();
  EXPECT_EQ(dlg.Caption(), "Form Action Options");
  const std::vector<tk::Control*> controls = dlg.Controls();
  ASSERT_EQ(controls.size(), std::size(cases));
  for (size_t i = 0; i < controls.size(); ++i) {
    const auto& c = cases[i];
    const tk::Control& ctl = *controls[i];
    SCOPED_TRACE(c.name);
    EXPECT_EQ(ctl.Name(), c.name);
    EXPECT_EQ(ctl.TabIndex(), static_cast<int>(i));
    EXPECT_EQ(ctl.kind(), c.kind);
    EXPECT_EQ(c.kind == ControlKind::kText ? ctl.Text() : ctl.Caption(),
              c.caption_or_text);
    EXPECT_EQ(ctl.Visible(), c.visible);
    EXPECT_TRUE(ctl.Enabled());
    EXPECT_EQ(ctl.Value(), c.value);
    EXPECT_EQ(ctl.MaxLength(), c.max_length);
    EXPECT_EQ(ctl.Container() ? ctl.Container()->Name() : "",
              c.container ? c.container : "");
    EXPECT_EQ(ctl.IsDefault(), std::string(c.name) == "cmdOK");
    EXPECT_FALSE(ctl.IsCancel());
  }
  // Two exclusive pairs, independent of each other.
  EXPECT_EQ(C("optActionEmail").Group(), C("optActionCustom").Group());
  EXPECT_EQ(C("optFormatHumanReadable").Group(), C("optFormatCSV").Group());
  EXPECT_NE(C("optActionEmail").Group(), C("optFormatCSV").Group());
  // Form_Load took the designed options over.
  EXPECT_TRUE(dlg.bSendEmail);
  EXPECT_TRUE(dlg.bHumanReadable);
}

TEST_F(ActionOptionsTest, EveryLoadStartsWithTheDesignedCaption) {
  dlg.Load();
  dlg.SetCaption("Form Orb Options");
  dlg.Unload();
  dlg.Load();
  EXPECT_EQ(dlg.Caption(), "Form Action Options");
}

TEST_F(ActionOptionsTest, FieldsAndBInUseNeedNoWindow) {
  frmActionOptions& again = frmActionOptions::Instance();
  EXPECT_EQ(&again, &dlg);
  again.bInUse = true;
  again.strEmailAddr = "x";
  EXPECT_TRUE(dlg.bInUse);
  EXPECT_FALSE(dlg.GotValidFormAction());  // bSendEmail is False
  std::vector<std::string> names;
  for (const auto& [name, value] : dlg.Fields()) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{
                       "mvarResult", "mvarModified", "bInUse", "bSendEmail",
                       "strEmailAddr", "strEmailSubj", "bHumanReadable",
                       "strActionURL", "strDefActionURL"}));
  EXPECT_EQ(std::get<bool>(dlg.Fields()[2].second), true);
  EXPECT_EQ(std::get<int64_t>(dlg.Fields()[0].second), 0);
  EXPECT_EQ(std::get<std::string>(dlg.Fields()[4].second), "x");
  EXPECT_FALSE(dlg.Loaded());
}

TEST_F(ActionOptionsTest, FormLoadResetsThreeFieldsOnly) {
  dlg.mvarResult = 1;
  dlg.bInUse = true;
  dlg.strEmailAddr = "a@b";
  dlg.strEmailSubj = "S";
  dlg.strActionURL = "/cgi";
  dlg.strDefActionURL = "/mail";
  dlg.Load();
  EXPECT_TRUE(dlg.bSendEmail);
  EXPECT_TRUE(dlg.bHumanReadable);
  EXPECT_EQ(dlg.strEmailAddr, "");
  EXPECT_EQ(dlg.strEmailSubj, "S");
  EXPECT_EQ(dlg.strActionURL, "/cgi");
  EXPECT_EQ(dlg.strDefActionURL, "/mail");
  EXPECT_EQ(dlg.mvarResult, 1);
  EXPECT_TRUE(dlg.bInUse);
}

// --- settings and the form element ------------------------------------------

TEST_F(ActionOptionsTest, GotValidFormAction) {
  const struct {
    bool send_email;
    const char* addr;
    const char* url;
    bool valid;
  } cases[] = {
      {true, "a@b", "", true},          {true, " ", "", true},
      {true, "", "/cgi", false},        {false, "a@b", "", false},
      {false, "a@b", "http://", false}, {false, "", "/cgi", true},
      {false, "", "http:/", true},
  };
  for (const auto& c : cases) {
    dlg.bSendEmail = c.send_email;
    dlg.strEmailAddr = c.addr;
    dlg.strActionURL = c.url;
    EXPECT_EQ(dlg.GotValidFormAction(), c.valid)
        << c.send_email << " '" << c.addr << "' '" << c.url << "'";
  }
  EXPECT_FALSE(dlg.Loaded());
}

TEST_F(ActionOptionsTest, GetOptionsFromForm) {
  const struct {
    const char* form;
    bool send_email;
    const char* url;
    const char* def;
    const char* addr;
    const char* subj;
    bool human;
  } cases[] = {
      // No action, or the default one: e-mail, and the URL is the
      // placeholder, not the stored action.
      {"<form defaultaction='/mail'/>", true, "http://", "/mail", "", "", true},
      {"<form action='/mail' defaultaction='/mail'/>", true, "http://", "/mail",
       "", "", true},
      {"<form/>", true, "http://", "", "", "", true},
      // Any other action is a custom script; the comparison is exact.
      {"<form action='/cgi/x' defaultaction='/mail'/>", false, "/cgi/x",
       "/mail", "", "", true},
      {"<form action='/Mail' defaultaction='/mail'/>", false, "/Mail", "/mail",
       "", "", true},
      {"<form action='/cgi'/>", false, "/cgi", "", "", "", true},
      // Hidden fields; only a send mode of exactly "2" means CSV.
      {kMailForm, true, "http://", "/mail", "a@b", "S", true},
      {kCustomCsvForm, false, "/cgi/x", "/mail", "a@b", "S", false},
      {"<form><input type='hidden' name='qln_SendMode' value='3'/></form>",
       true, "http://", "", "", "", true},
      {"<form><input type='hidden' name='qln_SendMode' value=' 2'/></form>",
       true, "http://", "", "", "", true},
      {"<form><input type='text' name='qln_EmailTo' value='t@x'/></form>", true,
       "http://", "", "", "", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.form);
    Reset();
    dlg.strEmailSubj = "earlier";
    dlg.mvarModified = true;
    Open(c.form);
    EXPECT_EQ(dlg.bSendEmail, c.send_email);
    EXPECT_EQ(dlg.strActionURL, c.url);
    EXPECT_EQ(dlg.strDefActionURL, c.def);
    EXPECT_EQ(dlg.strEmailAddr, c.addr);
    EXPECT_EQ(dlg.strEmailSubj, c.subj);
    EXPECT_EQ(dlg.bHumanReadable, c.human);
    EXPECT_FALSE(dlg.mvarModified);
    // The controls follow, and a custom action disables the e-mail part.
    EXPECT_EQ(C("optActionEmail").Value(), c.send_email);
    EXPECT_EQ(C("optActionCustom").Value(), !c.send_email);
    EXPECT_EQ(C("optFormatHumanReadable").Value(), c.human);
    EXPECT_EQ(C("optFormatCSV").Value(), !c.human);
    EXPECT_EQ(C("txtEmailAddr").Text(), c.addr);
    EXPECT_EQ(C("txtEmailSubj").Text(), c.subj);
    EXPECT_EQ(C("txtActionURL").Text(), c.url);
    for (const char* name : {"txtEmailAddr", "txtEmailSubj",
                             "optFormatHumanReadable", "optFormatCSV"}) {
      EXPECT_EQ(C(name).Enabled(), c.send_email) << name;
    }
    EXPECT_EQ(C("txtActionURL").Enabled(), !c.send_email);
    EXPECT_FALSE(C("txtActionURL").Visible());
    EXPECT_TRUE(C("Label2").Enabled());
  }
}

TEST_F(ActionOptionsTest, GetOptionsFromFormOnAnUnloadedDialogKeepsItsResult) {
  // The callers load first; reading into an unloaded dialog loads it before
  // it reads, so no Form_Load runs over the result.
  dlg.GetOptionsFromForm(FindElementInXml(kCustomCsvForm, "form"));
  EXPECT_TRUE(dlg.Loaded());
  EXPECT_FALSE(dlg.bSendEmail);
  EXPECT_FALSE(dlg.bHumanReadable);
  EXPECT_EQ(dlg.strEmailAddr, "a@b");
  EXPECT_EQ(C("txtEmailAddr").Text(), "a@b");
}

std::string Hidden(const char* name, const char* value) {
  return std::string("<input type=\"hidden\" name=\"") + name + "\" value=\"" +
         value + "\"></input>";
}

TEST_F(ActionOptionsTest, SetOptionsIntoForm) {
  const std::string email_to = Hidden("qln_EmailTo", "a@b");
  const struct {
    const char* form;
    bool send_email;
    const char* url;
    const char* subj;
    bool human;
    std::string xml;
  } cases[] = {
      // E-mail: the default action, whatever strActionURL holds.
      {"<form defaultaction='/mail'/>", true, "/cgi", "", true,
       "<form defaultaction=\"/mail\" action=\"/mail\" method=\"POST\" "
       "enctype=\"application/x-www-form-urlencoded\">" +
           Hidden("qln_SendMode", "1") + email_to + "</form>"},
      // A custom script keeps its URL; the placeholder and the empty URL
      // fall back to the default action.
      {"<form defaultaction='/mail'/>", false, "/cgi", "", true,
       "<form defaultaction=\"/mail\" action=\"/cgi\" method=\"POST\" "
       "enctype=\"application/x-www-form-urlencoded\">" +
           Hidden("qln_SendMode", "1") + email_to + "</form>"},
      {"<form defaultaction='/mail'/>", false, "http://", "", true,
       "<form defaultaction=\"/mail\" action=\"/mail\" method=\"POST\" "
       "enctype=\"application/x-www-form-urlencoded\">" +
           Hidden("qln_SendMode", "1") + email_to + "</form>"},
      {"<form defaultaction='/mail'/>", false, "", "", true,
       "<form defaultaction=\"/mail\" action=\"/mail\" method=\"POST\" "
       "enctype=\"application/x-www-form-urlencoded\">" +
           Hidden("qln_SendMode", "1") + email_to + "</form>"},
      // Attributes and fields that exist are written in place; a subject
      // is written when there is one, and CSV is "2".
      {"<form enctype='x' method='get' action='/old'>"
       "<input type='hidden' name='qln_SendMode' value='1'/><p/></form>",
       true, "", "S", false,
       "<form enctype=\"application/x-www-form-urlencoded\" method=\"POST\" "
       "action=\"\">" +
           Hidden("qln_Subject", "S") + email_to + Hidden("qln_SendMode", "2") +
           "<p></p></form>"},
      // An empty subject leaves an earlier one as it was.
      {"<form><input type='hidden' name='qln_Subject' value='Old'/></form>",
       true, "", "", true,
       "<form action=\"\" method=\"POST\" "
       "enctype=\"application/x-www-form-urlencoded\">" +
           Hidden("qln_SendMode", "1") + email_to +
           Hidden("qln_Subject", "Old") + "</form>"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.form);
    KelXmlElement form = FindElementInXml(c.form, "form");
    dlg.bSendEmail = c.send_email;
    dlg.strEmailAddr = "a@b";
    dlg.strEmailSubj = c.subj;
    dlg.bHumanReadable = c.human;
    dlg.strActionURL = c.url;
    dlg.strDefActionURL = form.GetAttribute("defaultaction");
    dlg.mvarModified = true;
    dlg.SetOptionsIntoForm(form);
    EXPECT_EQ(form.Xml(), c.xml);
    // Fields stay, and no window is needed.
    EXPECT_EQ(dlg.strActionURL, c.url);
    EXPECT_TRUE(dlg.mvarModified);
    EXPECT_FALSE(dlg.Loaded());
  }
  EXPECT_TRUE(ui.boxes.empty());
}

TEST_F(ActionOptionsTest, SetOptionsIntoFormWritesAnEmptyAddressToo) {
  KelXmlElement form = FindElementInXml("<form/>", "form");
  dlg.bSendEmail = false;
  dlg.strActionURL = "/cgi";
  dlg.SetOptionsIntoForm(form);
  EXPECT_EQ(GetHiddenField(form, "qln_EmailTo"), "");
  EXPECT_EQ(form.FirstChild().NextSibling().Xml(), Hidden("qln_EmailTo", ""));
}

TEST_F(ActionOptionsTest, SettingsSurviveARoundTrip) {
  const struct {
    const char* form;          // read first
    const char* written_mode;  // qln_SendMode after writing back
  } cases[] = {
      {kMailForm, "1"},
      {kCustomCsvForm, "2"},
      {"<form defaultaction='/mail'/>", "1"},
      // Any mode but "2" reads as human-readable and is written as "1".
      {"<form><input type='hidden' name='qln_SendMode' value='x'/></form>",
       "1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.form);
    Reset();
    Open(c.form);
    const tk::FieldList before = dlg.Fields();
    KelXmlElement target = FindElementInXml(
        "<form defaultaction='" + dlg.strDefActionURL + "'/>", "form");
    dlg.SetOptionsIntoForm(target);
    EXPECT_EQ(GetHiddenField(target, "qln_SendMode"), c.written_mode);
    Reset();
    Open(target.Xml());
    EXPECT_EQ(dlg.Fields(), before);
  }
}

// --- the dialog in use -------------------------------------------------------

TEST_F(ActionOptionsTest,
       OkTakesTheControlsOverAndTellsWhetherAnythingChanged) {
  const struct {
    const char* what;
    std::vector<UserAction> actions;
    bool modified;
    const char* addr;
    const char* subj;
    bool human;
  } cases[] = {
      {"nothing", {}, false, "a@b", "S", true},
      {"type an address", {Type("txtEmailAddr", "x")}, true, "a@bx", "S", true},
      {"type and take back",
       {Type("txtEmailAddr", "xy"), Backspace("txtEmailAddr", 2)},
       false,
       "a@b",
       "S",
       true},
      {"clear the subject", {Clear("txtEmailSubj")}, true, "a@b", "", true},
      {"choose CSV", {Click("optFormatCSV")}, true, "a@b", "S", false},
      {"choose CSV and back",
       {Click("optFormatCSV"), Click("optFormatHumanReadable")},
       false,
       "a@b",
       "S",
       true},
      {"click the selected format",
       {Click("optFormatHumanReadable")},
       false,
       "a@b",
       "S",
       true},
      // The hidden controls take no input.
      {"hidden controls",
       {Click("optActionCustom"), Type("txtActionURL", "x")},
       false,
       "a@b",
       "S",
       true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    Open(kMailForm);
    std::vector<UserAction> actions = c.actions;
    actions.push_back(Click("cmdOK"));
    Show(actions);
    ASSERT_EQ(ui.outcomes.size(), actions.size());
    EXPECT_FALSE(ui.left_open);
    EXPECT_FALSE(dlg.Shown());
    EXPECT_TRUE(dlg.Loaded());
    EXPECT_EQ(dlg.mvarResult, 1);
    EXPECT_EQ(dlg.mvarModified, c.modified);
    EXPECT_EQ(dlg.strEmailAddr, c.addr);
    EXPECT_EQ(dlg.strEmailSubj, c.subj);
    EXPECT_EQ(dlg.bHumanReadable, c.human);
    EXPECT_TRUE(dlg.bSendEmail);
    EXPECT_EQ(dlg.strActionURL, "http://");
  }
  // What the hidden controls said.
  EXPECT_EQ(ui.outcomes[0].why, "hidden");
  EXPECT_EQ(ui.outcomes[1].why, "hidden");
}

TEST_F(ActionOptionsTest, EmptyingThePlaceholderUrlIsNoChange) {
  const struct {
    const char* field;
    const char* box;
    bool modified;
    const char* after;
  } cases[] = {
      {"http://", "", false, "http://"},
      {"http://", "http://x", true, "http://x"},
      {"/cgi", "", true, ""},
      {"", "http://", true, "http://"},
      {"/cgi", "/cgi", false, "/cgi"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.field) + " -> " + c.box);
    Reset();
    dlg.Load();
    dlg.strActionURL = c.field;
    dlg.RefreshControls();
    C("txtActionURL").SetText(c.box);
    Show({Click("cmdOK")});
    EXPECT_EQ(dlg.mvarResult, 1);
    EXPECT_EQ(dlg.mvarModified, c.modified);
    EXPECT_EQ(dlg.strActionURL, c.after);
  }
}

TEST_F(ActionOptionsTest, OkAcceptsAnEmptyAddressWithoutAWord) {
  Open(kMailForm);
  Show({Clear("txtEmailAddr"), Click("cmdOK")});
  EXPECT_EQ(dlg.mvarResult, 1);
  EXPECT_TRUE(dlg.mvarModified);
  EXPECT_FALSE(dlg.GotValidFormAction());
  EXPECT_TRUE(ui.boxes.empty());
}

TEST_F(ActionOptionsTest, EnterPressesOkFromAnyBox) {
  for (const char* box : {"txtEmailAddr", "txtEmailSubj"}) {
    SCOPED_TRACE(box);
    Reset();
    Open(kMailForm);
    Show({Type(box, "z"), Key(tk::kKeyReturn), Type(box, "never")});
    EXPECT_EQ(ui.outcomes.size(), 2u);  // the dialog was gone after Enter
    EXPECT_FALSE(ui.left_open);
    EXPECT_EQ(dlg.mvarResult, 1);
    EXPECT_TRUE(dlg.mvarModified);
    EXPECT_EQ(C(box).Text(),
              std::string(box) == "txtEmailAddr" ? "a@bz" : "Sz");
  }
}

TEST_F(ActionOptionsTest, EscapeDoesNothing) {
  Open(kMailForm);
  dlg.mvarResult = 1;
  Show({Type("txtEmailAddr", "z"), Key(tk::kKeyEscape)});
  ASSERT_EQ(ui.outcomes.size(), 2u);
  EXPECT_FALSE(ui.outcomes[1].ignored);
  EXPECT_TRUE(ui.left_open);
  EXPECT_EQ(dlg.mvarResult, 1);
  EXPECT_EQ(dlg.strEmailAddr, "a@b");
  EXPECT_EQ(C("txtEmailAddr").Text(), "a@bz");
}

TEST_F(ActionOptionsTest, CancelRestoresTheControlsAndKeepsTheFields) {
  Open(kMailForm);
  dlg.mvarModified = true;
  Show({Type("txtEmailAddr", "z"), Clear("txtEmailSubj"), Click("optFormatCSV"),
        Click("cmdCancel")});
  EXPECT_FALSE(ui.left_open);
  EXPECT_TRUE(dlg.Loaded());
  EXPECT_EQ(dlg.mvarResult, 2);
  EXPECT_FALSE(dlg.mvarModified);
  EXPECT_EQ(dlg.strEmailAddr, "a@b");
  EXPECT_EQ(dlg.strEmailSubj, "S");
  EXPECT_TRUE(dlg.bHumanReadable);
  EXPECT_EQ(C("txtEmailAddr").Text(), "a@b");
  EXPECT_EQ(C("txtEmailSubj").Text(), "S");
  EXPECT_TRUE(C("optFormatHumanReadable").Value());
  EXPECT_FALSE(C("optFormatCSV").Value());
}

TEST_F(ActionOptionsTest,
       TheCloseBoxActsAsCancelAndTheNextUseFindsTheSettings) {
  // A stored custom script with CSV, under the wizard.
  Open(kCustomCsvForm);
  dlg.mvarResult = 1;                   // an earlier OK
  C("txtEmailSubj").SetText("edited");  // an edit the close box discards
  Show({CloseBox()});
  EXPECT_FALSE(ui.left_open);
  EXPECT_TRUE(dlg.Loaded());
  EXPECT_EQ(dlg.mvarResult, 2);
  EXPECT_FALSE(dlg.mvarModified);
  EXPECT_EQ(dlg.strEmailSubj, "S");
  EXPECT_EQ(C("txtEmailSubj").Text(), "S");

  // cmdActionOptions_Click's next use: address in, refresh, show, OK.
  dlg.strEmailAddr = "w@x";
  dlg.RefreshControls();
  EXPECT_FALSE(dlg.bSendEmail);
  EXPECT_FALSE(dlg.bHumanReadable);
  EXPECT_EQ(dlg.strActionURL, "/cgi/x");
  Show({Click("cmdOK")});
  EXPECT_EQ(dlg.mvarResult, 1);
  EXPECT_FALSE(dlg.mvarModified);
  EXPECT_EQ(dlg.strEmailAddr, "w@x");
  EXPECT_FALSE(dlg.bSendEmail);
  EXPECT_FALSE(dlg.bHumanReadable);
}

TEST_F(ActionOptionsTest, RefreshAfterUnloadReloadsAndFormLoadResetsThree) {
  Open(kCustomCsvForm);
  dlg.mvarResult = 1;
  dlg.Unload();
  // The fields outlive the window.
  EXPECT_FALSE(dlg.bSendEmail);
  EXPECT_EQ(dlg.strEmailAddr, "a@b");
  // The first touch of a control loads the window again.
  dlg.RefreshControls();
  EXPECT_TRUE(dlg.Loaded());
  EXPECT_TRUE(dlg.bSendEmail);
  EXPECT_TRUE(dlg.bHumanReadable);
  EXPECT_EQ(dlg.strEmailAddr, "");
  EXPECT_EQ(dlg.strEmailSubj, "S");
  EXPECT_EQ(dlg.strActionURL, "/cgi/x");
  EXPECT_EQ(dlg.strDefActionURL, "/mail");
  EXPECT_EQ(dlg.mvarResult, 1);
  EXPECT_TRUE(C("optActionEmail").Value());
  EXPECT_TRUE(C("txtEmailAddr").Enabled());
  EXPECT_EQ(C("txtActionURL").Text(), "/cgi/x");
}

TEST_F(ActionOptionsTest, ACustomActionLeavesOnlyOkAndCancel) {
  KelXmlElement form = Open(kCustomCsvForm);
  Show({Type("txtEmailAddr", "z"), Click("optFormatHumanReadable"),
        Type("txtActionURL", "z"), Click("optActionEmail"), Click("cmdOK")});
  ASSERT_EQ(ui.outcomes.size(), 5u);
  EXPECT_EQ(ui.outcomes[0].why, "disabled");
  EXPECT_EQ(ui.outcomes[1].why, "disabled");
  EXPECT_EQ(ui.outcomes[2].why, "hidden");
  EXPECT_EQ(ui.outcomes[3].why, "hidden");
  EXPECT_EQ(dlg.mvarResult, 1);
  EXPECT_FALSE(dlg.mvarModified);
  EXPECT_TRUE(dlg.GotValidFormAction());
  dlg.SetOptionsIntoForm(form);
  EXPECT_EQ(form.GetAttribute("action"), "/cgi/x");
}

TEST_F(ActionOptionsTest, TypingStopsAt256Characters) {
  Open("<form/>");
  Show({Type("txtEmailAddr", std::string(300, 'a')),
        Type("txtEmailSubj", std::string(255, 'b') + "\xC3\xA9\xC3\xA9"),
        Click("cmdOK")});
  EXPECT_EQ(dlg.strEmailAddr, std::string(256, 'a'));
  EXPECT_EQ(dlg.strEmailSubj, std::string(255, 'b') + "\xC3\xA9");
  // What the program sets is never cut.
  dlg.strEmailAddr = std::string(300, 'c');
  dlg.RefreshControls();
  EXPECT_EQ(C("txtEmailAddr").Text().size(), 300u);
}

TEST_F(ActionOptionsTest, TheFormatOptionsDoNotClearTheActionOption) {
  Open(kMailForm);
  Show({Click("optFormatCSV"), Click("cmdOK")});
  EXPECT_TRUE(C("optActionEmail").Value());
  EXPECT_TRUE(dlg.bSendEmail);
  // And the action pair, set by the program, leaves the format alone.
  C("optActionCustom").SetValue(true);
  EXPECT_FALSE(C("optActionEmail").Value());
  EXPECT_TRUE(C("optFormatCSV").Value());
  // Its handler updates the boxes at once.
  EXPECT_FALSE(C("txtEmailAddr").Enabled());
  EXPECT_TRUE(C("txtActionURL").Enabled());
}

}  // namespace
}  // namespace formwiz
