// frmActionOptions: its controls as designed, the settings to and from a
// form element, and the dialog as a person uses it. The runs from the wizard
// and on stored forms are scenarios (tests/scenarios/*options*.json); a
// custom action shown from the wizard is in wizard_test.cpp.
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
    d.strEmailAddr = d.strEmailSubj = d.strActionURL = d.strDefActionURL = "";
  }

  // Loads the dialog and reads the settings from `xml`, as the callers do.
  void Open(const std::string& xml) {
    dlg.Load();
    dlg.GetOptionsFromForm(FindElementInXml(xml, "form"));
  }
  void Show(PersonUi::Script script) {
    ui.act = std::move(script);
    dlg.ShowModal(nullptr);
  }
  tk::Control& C(const char* name) { return dlg.Ctl(name); }
  // The settings: "mail" or "custom", action URL, default action, address,
  // subject, "human" or "csv".
  std::string Fields() {
    return std::string(dlg.bSendEmail ? "mail|" : "custom|") +
           dlg.strActionURL + "|" + dlg.strDefActionURL + "|" +
           dlg.strEmailAddr + "|" + dlg.strEmailSubj +
           (dlg.bHumanReadable ? "|human" : "|csv");
  }
  // The controls show the fields; a custom action disables the e-mail part.
  void ExpectControlsShowTheFields() {
    const bool mail = dlg.bSendEmail;
    EXPECT_EQ(C("optActionEmail").Value(), mail);
    EXPECT_EQ(C("optActionCustom").Value(), !mail);
    EXPECT_EQ(C("optFormatHumanReadable").Value(), dlg.bHumanReadable);
    EXPECT_EQ(C("optFormatCSV").Value(), !dlg.bHumanReadable);
    EXPECT_EQ(
        C("txtEmailAddr").Text() + "|" + C("txtEmailSubj").Text() + "|" +
            C("txtActionURL").Text(),
        dlg.strEmailAddr + "|" + dlg.strEmailSubj + "|" + dlg.strActionURL);
    for (const char* name : {"txtEmailAddr", "txtEmailSubj",
                             "optFormatHumanReadable", "optFormatCSV"}) {
      EXPECT_EQ(C(name).Enabled(), mail) << name;
    }
    EXPECT_EQ(C("txtActionURL").Enabled(), !mail);
  }

  frmActionOptions& dlg = frmActionOptions::Instance();
  PersonUi ui;
  ScopedUi scope{ui};
};

// A stored form with the default action or a script, e-mailing as text or
// as CSV.
std::string StoredForm(const char* action, const char* mode) {
  return std::string("<form action='") + action +
         "' defaultaction='/mail'><input type='hidden' name='qln_EmailTo' "
         "value='a@b'/><input type='hidden' name='qln_Subject' value='S'/>"
         "<input type='hidden' name='qln_SendMode' value='" +
         mode + "'/></form>";
}
const std::string kMailForm = StoredForm("/mail", "1");
const std::string kCustomCsvForm = StoredForm("/cgi/x", "2");

TEST_F(ActionOptionsTest, EveryLoadStartsWithTheDesignedCaptionAndTwoPairs) {
  dlg.Load();
  dlg.SetCaption("Form Orb Options");
  dlg.Unload();
  dlg.Load();
  EXPECT_EQ(dlg.Caption(), "Form Action Options");
  // Two exclusive pairs, independent of each other.
  EXPECT_EQ(C("optActionEmail").Group(), C("optActionCustom").Group());
  EXPECT_EQ(C("optFormatHumanReadable").Group(), C("optFormatCSV").Group());
  EXPECT_NE(C("optActionEmail").Group(), C("optFormatCSV").Group());
}

// --- settings and the form element ------------------------------------------

TEST_F(ActionOptionsTest, GotValidFormAction) {
  const struct {
    bool send_email;
    const char *addr, *url;
    bool valid;
  } cases[] = {
      {true, " ", "", true},       {true, "", "/cgi", false},
      {false, "a@b", "", false},   {false, "a@b", "http://", false},
      {false, "", "http:/", true},
  };
  for (const auto& c : cases) {
    dlg.bSendEmail = c.send_email;
    dlg.strEmailAddr = c.addr;
    dlg.strActionURL = c.url;
    EXPECT_EQ(dlg.GotValidFormAction(), c.valid)
        << c.send_email << " '" << c.addr << "' '" << c.url << "'";
  }
  EXPECT_FALSE(dlg.Loaded());  // the fields need no window
}

TEST_F(ActionOptionsTest, GetOptionsFromForm) {
  const std::pair<std::string, const char*> cases[] = {
      // No action, or the default one: e-mail, and the URL is the
      // placeholder, not the stored action.
      {"<form defaultaction='/mail'/>", "mail|http://|/mail|||human"},
      {"<form action='/mail' defaultaction='/mail'/>",
       "mail|http://|/mail|||human"},
      // Any other action is a custom script; the comparison is exact.
      {"<form action='/Mail' defaultaction='/mail'/>",
       "custom|/Mail|/mail|||human"},
      // Hidden fields; only a send mode of exactly "2" means CSV.
      {kMailForm, "mail|http://|/mail|a@b|S|human"},
      {kCustomCsvForm, "custom|/cgi/x|/mail|a@b|S|csv"},
      {"<form><input type='hidden' name='qln_SendMode' value=' 2'/></form>",
       "mail|http://||||human"},
  };
  for (const auto& [form, fields] : cases) {
    SCOPED_TRACE(form);
    Reset();
    dlg.strEmailSubj = "earlier";
    dlg.mvarModified = true;
    Open(form);
    EXPECT_EQ(Fields(), fields);
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
    const char *url, *subj;
    bool human;
    std::string xml;
  } cases[] = {
      // E-mail: the default action, whatever strActionURL holds.
      {"<form defaultaction='/mail'/>", true, "/cgi", "", true,
       mail_head + "/mail" + post + mail_tail},
      // A custom script keeps its URL; the placeholder (or an empty URL)
      // falls back to the default action.
      {"<form defaultaction='/mail'/>", false, "/cgi", "", true,
       mail_head + "/cgi" + post + mail_tail},
      {"<form defaultaction='/mail'/>", false, "http://", "", true,
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
    EXPECT_TRUE(dlg.mvarModified);
  }
}

// --- the dialog in use -------------------------------------------------------

// OK compares values, not input: undone edits and an emptied placeholder
// URL are no change. A change, none, and the hidden controls are scenarios
// (stored-form-options.json, action-options-from-wizard.json).
TEST_F(ActionOptionsTest, OkComparesValuesNotInput) {
  const struct {
    const char *url, *box;  // the field before, then the box's text if set
    bool modified;
    const char* after;
  } cases[] = {
      {"http://", nullptr, false, "http://"},
      {"http://", "", false, "http://"},
      {"/cgi", "", true, ""},
      {"", "http://", true, "http://"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.url) + " -> " + (c.box ? c.box : "-"));
    Reset();
    Open(kMailForm);
    dlg.strActionURL = c.url;
    dlg.RefreshControls();
    if (c.box) C("txtActionURL").SetText(c.box);
    Show([&](tk::Form& f) {
      Do(f, Kind::kType, "txtEmailAddr", "x");
      Do(f, Kind::kBackspace, "txtEmailAddr");
      Click(f, "optFormatCSV");
      Click(f, "optFormatHumanReadable");
      Click(f, "cmdOK");
      EXPECT_FALSE(f.Shown());
    });
    EXPECT_EQ(dlg.mvarResult, 1);
    EXPECT_EQ(dlg.mvarModified, c.modified);
    EXPECT_EQ(Fields(), std::string("mail|") + c.after + "|/mail|a@b|S|human");
  }
}

TEST_F(ActionOptionsTest, CancelAndTheCloseBoxRestoreTheControlsThenUnload) {
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
    EXPECT_EQ(Fields(), "custom|/cgi/x|/mail|a@b|S|csv");
    ExpectControlsShowTheFields();
  }
  // Unloaded, the first touch of a control loads the window again;
  // Form_Load resets three fields and the others outlive the window.
  dlg.bInUse = true;
  dlg.Unload();
  dlg.RefreshControls();
  EXPECT_TRUE(dlg.Loaded());
  EXPECT_EQ(Fields(), "mail|/cgi/x|/mail||S|human");
  EXPECT_EQ(dlg.mvarResult, 2);
  EXPECT_TRUE(dlg.bInUse);
  ExpectControlsShowTheFields();
}

}  // namespace
}  // namespace formwiz
