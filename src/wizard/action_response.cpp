// Steps 1 and 2 of frmWizard: where the form's data goes, and the message a
// visitor sees after sending it; and SaveSettings, which writes both into
// the form at Finish.
#include <string>

#include "actionoptions/frm_action_options.h"
#include "component/strings.h"
#include "component/utils.h"
#include "formdoc/form_doc.h"
#include "wizard/frm_wizard.h"

namespace formwiz {
namespace {

// Whether the action settings can be used decides Next and Finish at once,
// and whether Finish stays allowed on the other steps.
void ApplyActionValidity(frmWizard& wiz) {
  const bool valid = frmActionOptions::Instance().GotValidFormAction();
  wiz.bFinishAllowed = valid;
  wiz.Ctl("cmdNav", frmWizard::kNavNext).SetEnabled(valid);
  wiz.Ctl("cmdNav", frmWizard::kNavFinish).SetEnabled(valid);
}

}  // namespace

void frmWizard::BuildActionResponseControls() {
  auto add = [this](tk::ControlKind kind, const char* name, tk::Control* panel,
                    const char* caption) -> tk::Control& {
    tk::Control& c = Add(kind, name);
    c.SetContainer(panel);
    if (kind == tk::ControlKind::kText) {
      c.SetText(caption);
    } else {
      c.SetCaption(caption);
    }
    return c;
  };

  tk::Control* action = &Ctl("fraStep", 1);
  add(tk::ControlKind::kLabel, "lblEmailAddr", action, "E-mail address:");
  tk::Control& address =
      add(tk::ControlKind::kText, "txtEmailAddr", action, "");
  address.SetMaxLength(256);
  address.on_change = [this] { txtEmailAddr_Change(); };
  add(tk::ControlKind::kLabel, "lblActionDesc", action,
      "The form will send you an e-mail when someone fills it out.");
  add(tk::ControlKind::kButton, "cmdActionOptions", action,
      "Form Action Options...")
      .on_click = [this] { cmdActionOptions_Click(); };

  tk::Control* response = &Ctl("fraStep", 2);
  add(tk::ControlKind::kLabel, "Label1", response, "Response message:");
  add(tk::ControlKind::kText, "txtResponse", response,
      "Thank you for your comments on my web site.")
      .SetMaxLength(512);
  add(tk::ControlKind::kLabel, "Label3", response,
      "When someone fills out your form, this message appears in their "
      "browser.");
}

void frmWizard::txtEmailAddr_Change() {
  // The box is a view of the address that frmActionOptions keeps.
  frmActionOptions::Instance().strEmailAddr = Ctl("txtEmailAddr").Text();
  ApplyActionValidity(*this);
}

void frmWizard::cmdActionOptions_Click() {
  frmActionOptions& options = frmActionOptions::Instance();
  options.strEmailAddr = Ctl("txtEmailAddr").Text();
  options.RefreshControls();
  // OK and Cancel alike come back here; the fields tell what stands now.
  options.ShowModal(this);
  Ctl("txtEmailAddr").SetText(options.strEmailAddr);
  ApplyActionValidity(*this);
  // Only here do these three follow the send mode, so a stored form with a
  // script action shows the e-mail wording until the options were closed
  // once.
  const bool email = options.bSendEmail;
  Ctl("lblActionDesc")
      .SetCaption(LoadResString(email ? kStrActionEmail : kStrActionCustom));
  Ctl("lblEmailAddr").SetVisible(email);
  Ctl("txtEmailAddr").SetVisible(email);
}

bool frmWizard::SaveSettings() {
  bool saved = false;
  // What was written before a failure stays in the tree.
  Trapped(code::kAssemble, [&] {
    const KelXmlElement form = FirstFormChild(elemImpl);
    if (!form) return;
    frmActionOptions::Instance().SetOptionsIntoForm(form);
    SetHiddenField(form, "qln_OKMessage", Ctl("txtResponse").Text(), false);
    SetHiddenField(form, "qln_FormIndex", std::to_string(nFormIndex), false);
    saved = true;
  });
  return saved;
}

}  // namespace formwiz
