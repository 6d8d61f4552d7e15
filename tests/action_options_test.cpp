// frmActionOptions: its controls as designed, the settings to and from a
// form element, and the dialog as a person uses it. The runs from the wizard
// and on stored forms are scenarios (tests/scenarios/*options*.json).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "actionoptions/frm_action_options.h"
#include "component/utils.h"
#include "component_test_support.h"
#include "formdoc/kelxml.h"

namespace formwiz {
namespace {

using Kind = tk::UserAction::Kind;

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
    d.mvarModified = d.bInUse = d.bSendEmail = d.bHumanReadable = false;
    for (std::string* s : {&d.strEmailAddr, &d.strEmailSubj, &d.strActionURL,
                           &d.strDefActionURL}) {
      s->clear();
    }
  }

  // Loads the dialog and reads the settings from `xml`, as the callers do.
  KelXmlElement Open(const std::string& xml) {
    KelXmlElement form = FindElementInXml(xml, "form");
    EXPECT_FALSE(form.IsNull()) << xml;
    dlg.Load();
    dlg.GetOptionsFromForm(form);
    return form;
  }
  // Shows the dialog modally with `script` as the person's input.
  void Show(PersonUi::Script script) {
    ui.act = std::move(script);
    dlg.ShowModal(nullptr);
  }
  tk::Control& C(const char* name) { return dlg.Ctl(name); }
  // The controls show the fields; a custom action disables the e-mail part.
  void ExpectControlsShowTheFields() {
    const bool mail = dlg.bSendEmail;
    EXPECT_EQ(C("optActionEmail").Value(), mail);
    EXPECT_EQ(C("optActionCustom").Value(), !mail);
    EXPECT_EQ(C("optFormatHumanReadable").Value(), dlg.bHumanReadable);
    EXPECT_EQ(C("optFormatCSV").Value(), !dlg.bHumanReadable);
    EXPECT_EQ(C("txtEmailAddr").Text(), dlg.strEmailAddr);
    EXPECT_EQ(C("txtEmailSubj").Text(), dlg.strEmailSubj);
    EXPECT_EQ(C("txtActionURL").Text(), dlg.strActionURL);
    for (const char* name : {"txtEmailAddr", "txtEmailSubj",
                             "optFormatHumanReadable", "optFormatCSV"}) {
      EXPECT_EQ(C(name).Enabled(), mail) << name;
    }
    EXPECT_EQ(C("txtActionURL").Enabled(), !mail);
    EXPECT_FALSE(C("txtActionURL").Visible());
    EXPECT_TRUE(C("Label2").Enabled());
  }

  frmActionOptions& dlg = frmActionOptions::Instance();
  PersonUi ui;
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

// "name kind:caption-or-text", visible (v) or hidden (h) with the value,
// the length limit, the container and the marks of the buttons.
std::string Describe(const tk::Control& c) {
  using K = tk::ControlKind;
  const K k = c.kind();
  const char* kind = k == K::kOption   ? "option"
                     : k == K::kText   ? "text"
                     : k == K::kLabel  ? "label"
                     : k == K::kFrame  ? "frame"
                     : k == K::kButton ? "button"
                                       : "?";
  return c.Name() + " " + kind + ":" +
         (k == K::kText ? c.Text() : c.Caption()) +
         (c.Visible() ? " v" : " h") + std::to_string(c.Value()) + " " +
         std::to_string(c.MaxLength()) +
         (c.Container() ? " in " + c.Container()->Name() : "") +
         (c.IsDefault() ? " default" : "") + (c.IsCancel() ? " cancel" : "") +
         (c.Enabled() ? "" : " disabled");
}

TEST_F(ActionOptionsTest, BuildsEveryControlAsDesignedInTabOrder) {
  const std::vector<std::string> designed = {
      "optActionEmail option:Send an e-mail with the form information h1 0",
      "optActionCustom option:Other (CGI Script) h0 0",
      "txtEmailAddr text: v0 256",
      "txtEmailSubj text: v0 256",
      "Label2 label:Form Action: v0 0",
      "Label3 label:CGI Script URL: h0 0",
      "Frame1 frame: v0 0",
      "optFormatHumanReadable option:Human-readable formatting v1 0 in Frame1",
      "optFormatCSV option:Comma-separated (for database import) v0 0 in "
      "Frame1",
      "txtActionURL text:http:// h0 256",
      "Label8 label:Send the e-mail to: v0 0",
      "Label9 label:E-mail subject: v0 0",
      "cmdOK button:OK v0 0 default",
      "cmdCancel button:Cancel v0 0",
  };
  // Every load starts with the designed caption.
  dlg.Load();
  dlg.SetCaption("Form Orb Options");
  dlg.Unload();
  dlg.Load();
  EXPECT_EQ(dlg.Caption(), "Form Action Options");
  std::vector<std::string> controls;
  for (const tk::Control* c : dlg.Controls()) {
    EXPECT_EQ(c->TabIndex(), static_cast<int>(controls.size())) << c->Name();
    controls.push_back(Describe(*c));
  }
  EXPECT_EQ(controls, designed);
  // Two exclusive pairs, independent of each other.
  EXPECT_EQ(C("optActionEmail").Group(), C("optActionCustom").Group());
  EXPECT_EQ(C("optFormatHumanReadable").Group(), C("optFormatCSV").Group());
  EXPECT_NE(C("optActionEmail").Group(), C("optFormatCSV").Group());
  // Form_Load took the designed options over.
  EXPECT_TRUE(dlg.bSendEmail);
  EXPECT_TRUE(dlg.bHumanReadable);
}

TEST_F(ActionOptionsTest, FieldsAndBInUseNeedNoWindow) {
  frmActionOptions& again = frmActionOptions::Instance();
  EXPECT_EQ(&again, &dlg);
  again.bInUse = true;
  EXPECT_TRUE(dlg.bInUse);
  EXPECT_FALSE(dlg.GotValidFormAction());  // bSendEmail is False
  EXPECT_FALSE(dlg.Loaded());
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
      // Any other action is a custom script; the comparison is exact.
      {"<form action='/Mail' defaultaction='/mail'/>", false, "/Mail", "/mail",
       "", "", true},
      {"<form action='/cgi'/>", false, "/cgi", "", "", "", true},
      // Hidden fields; only a send mode of exactly "2" means CSV.
      {kMailForm, true, "http://", "/mail", "a@b", "S", true},
      {kCustomCsvForm, false, "/cgi/x", "/mail", "a@b", "S", false},
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
    ExpectControlsShowTheFields();
  }
}

std::string Hidden(const char* name, const char* value) {
  return std::string("<input type=\"hidden\" name=\"") + name + "\" value=\"" +
         value + "\"></input>";
}

TEST_F(ActionOptionsTest, SetOptionsIntoForm) {
  const std::string post =
      "\" method=\"POST\" enctype=\"application/x-www-form-urlencoded\">";
  const std::string mail_head = "<form defaultaction=\"/mail\" action=\"";
  const std::string mail_tail =
      Hidden("qln_SendMode", "1") + Hidden("qln_EmailTo", "a@b") + "</form>";
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
       mail_head + "/mail" + post + mail_tail},
      // A custom script keeps its URL; the placeholder and the empty URL
      // fall back to the default action.
      {"<form defaultaction='/mail'/>", false, "/cgi", "", true,
       mail_head + "/cgi" + post + mail_tail},
      {"<form defaultaction='/mail'/>", false, "http://", "", true,
       mail_head + "/mail" + post + mail_tail},
      {"<form defaultaction='/mail'/>", false, "", "", true,
       mail_head + "/mail" + post + mail_tail},
      // Attributes and fields that exist are written in place; a subject
      // is written when there is one, and CSV is "2".
      {"<form enctype='x' method='get' action='/old'>"
       "<input type='hidden' name='qln_SendMode' value='1'/><p/></form>",
       true, "", "S", false,
       "<form enctype=\"application/x-www-form-urlencoded\" method=\"POST\" "
       "action=\"\">" +
           Hidden("qln_Subject", "S") + Hidden("qln_EmailTo", "a@b") +
           Hidden("qln_SendMode", "2") + "<p></p></form>"},
      // An empty subject leaves an earlier one as it was.
      {"<form><input type='hidden' name='qln_Subject' value='Old'/></form>",
       true, "", "", true,
       "<form action=\"" + post + Hidden("qln_SendMode", "1") +
           Hidden("qln_EmailTo", "a@b") + Hidden("qln_Subject", "Old") +
           "</form>"},
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

// --- the dialog in use -------------------------------------------------------

// A change, none, and the hidden controls are scenarios
// (stored-form-options.json, action-options-from-wizard.json): what counts
// is the value, not that something was typed.
TEST_F(ActionOptionsTest, OkComparesValuesNotInput) {
  const PersonUi::Script undone[] = {
      [](tk::Form& f) {
        Do(f, Kind::kType, "txtEmailAddr", "xy");
        Do(f, Kind::kBackspace, "txtEmailAddr");
        Do(f, Kind::kBackspace, "txtEmailAddr");
      },
      [](tk::Form& f) {
        Click(f, "optFormatCSV");
        Click(f, "optFormatHumanReadable");
      },
  };
  for (const auto& act : undone) {
    Reset();
    Open(kMailForm);
    Show([&](tk::Form& f) {
      act(f);
      Click(f, "cmdOK");
      EXPECT_FALSE(f.Shown());
    });
    EXPECT_TRUE(dlg.Loaded());
    EXPECT_EQ(dlg.mvarResult, 1);
    EXPECT_FALSE(dlg.mvarModified);
    EXPECT_EQ(dlg.strEmailAddr, "a@b");
    EXPECT_EQ(dlg.strEmailSubj, "S");
    EXPECT_TRUE(dlg.bHumanReadable);
    EXPECT_TRUE(dlg.bSendEmail);
    EXPECT_EQ(dlg.strActionURL, "http://");
  }
}

TEST_F(ActionOptionsTest, EmptyingThePlaceholderUrlIsNoChange) {
  const struct {
    const char* field;
    const char* box;
    bool modified;
    const char* after;
  } cases[] = {
      {"http://", "", false, "http://"},
      {"/cgi", "", true, ""},
      {"", "http://", true, "http://"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.field) + " -> " + c.box);
    Reset();
    dlg.Load();
    dlg.strActionURL = c.field;
    dlg.RefreshControls();
    C("txtActionURL").SetText(c.box);
    Show([](tk::Form& f) { Click(f, "cmdOK"); });
    EXPECT_EQ(dlg.mvarResult, 1);
    EXPECT_EQ(dlg.mvarModified, c.modified);
    EXPECT_EQ(dlg.strActionURL, c.after);
  }
}

TEST_F(ActionOptionsTest, CancelAndTheCloseBoxRestoreTheControls) {
  for (const Kind kind : {Kind::kClick, Kind::kClose}) {
    SCOPED_TRACE(static_cast<int>(kind));
    Reset();
    Open(kCustomCsvForm);
    dlg.mvarResult = 1;  // an earlier OK
    dlg.mvarModified = true;
    // Edits that the dialog discards.
    C("txtEmailAddr").SetText("z");
    C("txtEmailSubj").SetText("edited");
    C("optFormatHumanReadable").SetValue(true);
    Show([&](tk::Form& f) {
      Do(f, kind, kind == Kind::kClick ? "cmdCancel" : "");
    });
    EXPECT_TRUE(dlg.Loaded());
    EXPECT_EQ(dlg.mvarResult, 2);
    EXPECT_FALSE(dlg.mvarModified);
    EXPECT_EQ(dlg.strEmailAddr, "a@b");
    EXPECT_EQ(dlg.strEmailSubj, "S");
    EXPECT_FALSE(dlg.bSendEmail);
    EXPECT_FALSE(dlg.bHumanReadable);
    ExpectControlsShowTheFields();
  }
}

TEST_F(ActionOptionsTest, RefreshAfterUnloadReloadsAndFormLoadResetsThree) {
  Open(kCustomCsvForm);
  dlg.mvarResult = 1;
  dlg.bInUse = true;
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
  EXPECT_TRUE(dlg.bInUse);
  ExpectControlsShowTheFields();
}

TEST_F(ActionOptionsTest, ACustomActionLeavesOnlyOkAndCancel) {
  KelXmlElement form = Open(kCustomCsvForm);
  // cmdActionOptions_Click's way: address in, refresh, show.
  dlg.strEmailAddr = "w@x";
  dlg.RefreshControls();
  Show([](tk::Form& f) {
    EXPECT_EQ(Do(f, Kind::kType, "txtEmailAddr", "z").why, "disabled");
    EXPECT_EQ(Click(f, "optFormatHumanReadable").why, "disabled");
    EXPECT_EQ(Do(f, Kind::kType, "txtActionURL", "z").why, "hidden");
    EXPECT_EQ(Click(f, "optActionEmail").why, "hidden");
    Click(f, "cmdOK");
  });
  EXPECT_EQ(dlg.mvarResult, 1);
  EXPECT_FALSE(dlg.mvarModified);
  EXPECT_EQ(dlg.strEmailAddr, "w@x");
  EXPECT_FALSE(dlg.bSendEmail);
  EXPECT_FALSE(dlg.bHumanReadable);
  EXPECT_TRUE(dlg.GotValidFormAction());
  dlg.SetOptionsIntoForm(form);
  EXPECT_EQ(form.GetAttribute("action"), "/cgi/x");
}

}  // namespace
}  // namespace formwiz
