#include "actionoptions/frm_action_options.h"

#include "component/utils.h"

namespace formwiz {
namespace {

using tk::ControlKind;

// The placeholder that stands in txtActionURL and strActionURL when no custom
// script is set.
constexpr const char* kNoActionURL = "http://";
// The typed limit of the three text boxes.
constexpr int kMaxTextLength = 256;
// Option groups: the action pair stands on the window, the format pair in
// Frame1; each pair excludes only its own partner.
constexpr int kGroupAction = 0;
constexpr int kGroupFormat = 1;

// A custom action is set when the URL is neither empty nor the placeholder.
bool IsCustomURL(const std::string& url) {
  return !url.empty() && url != kNoActionURL;
}

}  // namespace

frmActionOptions& frmActionOptions::Instance() {
  // Created on first reference and never loaded by it: bInUse, read by every
  // clsFormWiz of the thread, works without a window.
  thread_local frmActionOptions instance;
  return instance;
}

// --- controls ---------------------------------------------------------------

void frmActionOptions::BuildControls() {
  SetCaption("Form Action Options");

  // Initial values are the designed ones: they are set before any handler is
  // wired, so building raises no event, as a loading window raises none.
  // Add order is tab order.
  tk::Control& optActionEmail = Add(ControlKind::kOption, "optActionEmail");
  optActionEmail.SetCaption("Send an e-mail with the form information");
  optActionEmail.SetGroup(kGroupAction);
  optActionEmail.SetValue(true);
  optActionEmail.SetVisible(false);

  tk::Control& optActionCustom = Add(ControlKind::kOption, "optActionCustom");
  optActionCustom.SetCaption("Other (CGI Script)");
  optActionCustom.SetGroup(kGroupAction);
  optActionCustom.SetVisible(false);

  Add(ControlKind::kText, "txtEmailAddr").SetMaxLength(kMaxTextLength);
  Add(ControlKind::kText, "txtEmailSubj").SetMaxLength(kMaxTextLength);

  // Bold in the designed window; the model holds no fonts.
  Add(ControlKind::kLabel, "Label2").SetCaption("Form Action:");

  tk::Control& label3 = Add(ControlKind::kLabel, "Label3");
  label3.SetCaption("CGI Script URL:");
  label3.SetVisible(false);

  tk::Control& frame1 = Add(ControlKind::kFrame, "Frame1");

  tk::Control& optHuman = Add(ControlKind::kOption, "optFormatHumanReadable");
  optHuman.SetCaption("Human-readable formatting");
  optHuman.SetContainer(&frame1);
  optHuman.SetGroup(kGroupFormat);
  optHuman.SetValue(true);

  tk::Control& optCSV = Add(ControlKind::kOption, "optFormatCSV");
  optCSV.SetCaption("Comma-separated (for database import)");
  optCSV.SetContainer(&frame1);
  optCSV.SetGroup(kGroupFormat);

  tk::Control& txtActionURL = Add(ControlKind::kText, "txtActionURL");
  txtActionURL.SetText(kNoActionURL);
  txtActionURL.SetMaxLength(kMaxTextLength);
  txtActionURL.SetVisible(false);

  Add(ControlKind::kLabel, "Label8").SetCaption("Send the e-mail to:");
  Add(ControlKind::kLabel, "Label9").SetCaption("E-mail subject:");

  tk::Control& cmdOK = Add(ControlKind::kButton, "cmdOK");
  cmdOK.SetCaption("OK");
  cmdOK.SetDefault(true);

  // Not the cancel button: Escape presses nothing in this dialog.
  tk::Control& cmdCancel = Add(ControlKind::kButton, "cmdCancel");
  cmdCancel.SetCaption("Cancel");

  cmdOK.on_click = [this] { cmdOK_Click(); };
  cmdCancel.on_click = [this] { cmdCancel_Click(); };
  optActionEmail.on_click = [this] { optActionEmail_Click(); };
  optActionCustom.on_click = [this] { optActionCustom_Click(); };
}

tk::FieldList frmActionOptions::Fields() const {
  return {
      {"mvarResult", int64_t{mvarResult}},
      {"mvarModified", mvarModified},
      {"bInUse", bInUse},
      {"bSendEmail", bSendEmail},
      {"strEmailAddr", strEmailAddr},
      {"strEmailSubj", strEmailSubj},
      {"bHumanReadable", bHumanReadable},
      {"strActionURL", strActionURL},
      {"strDefActionURL", strDefActionURL},
  };
}

// --- the settings and the form element --------------------------------------

bool frmActionOptions::GotValidFormAction() const {
  // The address is not examined beyond being empty.
  if (bSendEmail) return !strEmailAddr.empty();
  return IsCustomURL(strActionURL);
}

void frmActionOptions::GetOptionsFromForm(const KelXmlNode& nodeForm) {
  // Every caller loads the dialog first, since a load after this would run
  // Form_Load over the result. Loading here as well makes that hold for any
  // caller; for a loaded dialog it does nothing.
  Load();
  strEmailAddr = GetHiddenField(nodeForm, "qln_EmailTo");
  strEmailSubj = GetHiddenField(nodeForm, "qln_Subject");
  // "1", any other value and a missing field all mean human-readable.
  bHumanReadable = GetHiddenField(nodeForm, "qln_SendMode") != "2";
  strDefActionURL = nodeForm.GetAttribute("defaultaction");
  const std::string action = nodeForm.GetAttribute("action");
  if (!action.empty() && action != strDefActionURL) {
    bSendEmail = false;
    strActionURL = action;
  } else {
    // The stored action stands for e-mail delivery; it is not kept as the
    // script's URL.
    bSendEmail = true;
    strActionURL = kNoActionURL;
  }
  RefreshControls();
}

void frmActionOptions::SetOptionsIntoForm(const KelXmlNode& nodeForm) {
  // Node operations let their failures out to the caller's trap;
  // SetHiddenField reports its own.
  if (!bSendEmail && IsCustomURL(strActionURL)) {
    nodeForm.SetAttribute("action", strActionURL);
  } else {
    nodeForm.SetAttribute("action", strDefActionURL);
  }
  nodeForm.SetAttribute("method", "POST");
  nodeForm.SetAttribute("enctype", "application/x-www-form-urlencoded");
  // Hidden fields are written to an element; a node that is none is a type
  // mismatch, raised here.
  const KelXmlElement elem = nodeForm;
  SetHiddenField(elem, "qln_EmailTo", strEmailAddr, false);
  // An empty subject writes nothing, so an earlier one stays.
  if (!strEmailSubj.empty()) {
    SetHiddenField(elem, "qln_Subject", strEmailSubj, false);
  }
  SetHiddenField(elem, "qln_SendMode", bHumanReadable ? "1" : "2", false);
}

// --- the dialog's state ------------------------------------------------------

void frmActionOptions::RefreshControls() {
  // The first control touched loads an unloaded window (the classic
  // toolkit's implicit load), and its Form_Load resets bSendEmail,
  // bHumanReadable and strEmailAddr before they are read here. The control
  // is reached in a statement of its own so that this order is plain.
  tk::Control& optActionEmail = Ctl("optActionEmail");
  optActionEmail.SetValue(bSendEmail);
  Ctl("optActionCustom").SetValue(!bSendEmail);
  Ctl("optFormatHumanReadable").SetValue(bHumanReadable);
  Ctl("optFormatCSV").SetValue(!bHumanReadable);
  Ctl("txtEmailAddr").SetText(strEmailAddr);
  Ctl("txtEmailSubj").SetText(strEmailSubj);
  Ctl("txtActionURL").SetText(strActionURL);
  mvarModified = false;
  UpdateActionControls();
}

void frmActionOptions::UpdateActionControls() {
  // The labels are not touched.
  const bool email = Ctl("optActionEmail").Value();
  Ctl("txtEmailAddr").SetEnabled(email);
  Ctl("txtEmailSubj").SetEnabled(email);
  Ctl("optFormatHumanReadable").SetEnabled(email);
  Ctl("optFormatCSV").SetEnabled(email);
  Ctl("txtActionURL").SetEnabled(!email);
}

void frmActionOptions::Form_Load() {
  // As designed both options are selected, so both fields start True.
  // strEmailSubj, strActionURL, strDefActionURL, mvarResult and bInUse are
  // left alone.
  bSendEmail = Ctl("optActionEmail").Value();
  bHumanReadable = Ctl("optFormatHumanReadable").Value();
  strEmailAddr.clear();
}

// --- events ------------------------------------------------------------------

void frmActionOptions::cmdOK_Click() {
  // Validates nothing: whether the settings suffice is the caller's question
  // to GotValidFormAction.
  const bool email = Ctl("optActionEmail").Value();
  if (email != bSendEmail) {
    bSendEmail = email;
    mvarModified = true;
  }
  const bool human = Ctl("optFormatHumanReadable").Value();
  if (human != bHumanReadable) {
    bHumanReadable = human;
    mvarModified = true;
  }
  const std::string& addr = Ctl("txtEmailAddr").Text();
  if (addr != strEmailAddr) {
    strEmailAddr = addr;
    mvarModified = true;
  }
  const std::string& subj = Ctl("txtEmailSubj").Text();
  if (subj != strEmailSubj) {
    strEmailSubj = subj;
    mvarModified = true;
  }
  const std::string& url = Ctl("txtActionURL").Text();
  // Emptying the placeholder is no change.
  if (url != strActionURL && !(strActionURL == kNoActionURL && url.empty())) {
    strActionURL = url;
    mvarModified = true;
  }
  mvarResult = 1;
  Hide();
}

void frmActionOptions::cmdCancel_Click() {
  Hide();
  mvarResult = 2;
  // The fields keep their values and the controls return to them.
  RefreshControls();
}

void frmActionOptions::optActionCustom_Click() { UpdateActionControls(); }

void frmActionOptions::optActionEmail_Click() { UpdateActionControls(); }

void frmActionOptions::CloseFromFrame() {
  // The close box acts as Cancel: hide, mvarResult 2, controls back to the
  // fields, window still loaded.
  //
  // The classic window had no handler for it and was unloaded, with the
  // fields kept and mvarResult unchanged. For the stored form of OnOpen that
  // made no difference (GetOptionsFromForm has cleared mvarModified, so
  // nothing is written either way). Under the wizard it broke the next use:
  // cmdActionOptions_Click calls RefreshControls, whose first touch of a
  // control reloads the window, and that Form_Load resets bSendEmail,
  // bHumanReadable and strEmailAddr: a custom action read from the form
  // would turn into e-mail delivery, and a CSV format into human-readable,
  // with nothing the person did. Cancel keeps what the close kept (every
  // field, the edits in the controls discarded, mvarModified False, which is
  // all any caller reads) and keeps the window, so the next Show finds the
  // same settings. mvarResult 2 is what a close box means in every dialog
  // toolkit (Qt's QDialog rejects on it), and no caller treats a 2
  // differently from the kept value: OnOpen writes only for 1 with a change,
  // and the wizard does not read it.
  cmdCancel_Click();
}

}  // namespace formwiz
