// Step 0 of frmWizard: the choice of form, with each choice's description,
// response and subject, and the reading of a stored form back into the
// dialog.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "actionoptions/frm_action_options.h"
#include "component/failure.h"
#include "component/utils.h"
#include "formdoc/form_doc.h"
#include "wizard/frm_wizard.h"

namespace formwiz {
namespace {

// The options are fixed at two, with fixed captions: a definition must hold
// its form choices in this order. A definition with fewer leaves an option
// without description and defaults; with more, the rest cannot be chosen.
constexpr const char* kFormCaptions[] = {"Comment Form", "Request Form"};

// Entry `index` of a 1-based collection; null when there is none.
KelXmlNode Entry(const std::vector<KelXmlNode>& col, int index) {
  if (index < 1 || static_cast<size_t>(index) > col.size()) return {};
  return col[static_cast<size_t>(index) - 1];
}

}  // namespace

void frmWizard::BuildFormChoiceControls() {
  tk::Control* panel = &Ctl("fraStep", 0);
  for (int i = 0; i < 2; ++i) {
    tk::Control& option = Add(tk::ControlKind::kOption, "optForm", i);
    option.SetCaption(kFormCaptions[i]);
    option.SetContainer(panel);
    option.on_click = [this, i] { optForm_Click(i); };
    option.on_mouse_move = [this, i] { optForm_MouseMove(i); };
  }
  tk::Control& desc = Add(tk::ControlKind::kLabel, "lblFormDesc");
  desc.SetCaption("Description of form");
  desc.SetContainer(panel);
}

void frmWizard::LoadFormInfo() {
  colFormInfo.clear();
  // Every form choice counts, wherever it stands among the other children.
  for (KelXmlNode child = elemImpl.FirstChild(); child;
       child = child.NextSibling()) {
    if (child.TagName() == "forminfo") colFormInfo.push_back(child);
  }
}

std::string frmWizard::GetInfoText(const KelXmlNode& node,
                                   const std::string& strTag) {
  return formwiz::GetInfoText(node, strTag);
}

void frmWizard::ShowFormDesc(int16_t nIndex) {
  const KelXmlNode node = Entry(colFormInfo, nIndex);
  Ctl("lblFormDesc").SetCaption(node ? GetInfoText(node, "desc") : "");
}

void frmWizard::optForm_Click(int index) {
  nFormIndex = static_cast<int16_t>(index + 1);
  ShowFormDesc(nFormIndex);
  const KelXmlNode node = Entry(colFormInfo, nFormIndex);
  if (!node) return;
  // The choice's defaults replace whatever stands there, also what the
  // user typed or set before.
  Ctl("txtResponse").SetText(GetInfoText(node, "response"));
  frmActionOptions::Instance().strEmailSubj = GetInfoText(node, "emailsubject");
}

void frmWizard::optForm_MouseMove(int index) {
  // Shows the description under the pointer without choosing it.
  ShowFormDesc(static_cast<int16_t>(index + 1));
}

void frmWizard::fraStep_MouseMove(int index) {
  // Back on the free part of the first panel: the chosen form's
  // description returns.
  if (index == 0) ShowFormDesc(nFormIndex);
}

void frmWizard::LoadExistingSettings(const KelXmlNode& nodeForm) {
  frmActionOptions& options = frmActionOptions::Instance();
  const std::string stored = GetHiddenField(nodeForm, "qln_FormIndex");
  if (!stored.empty()) {
    const int option_index = ReadFormIndex(nodeForm) - 1;
    nFormIndex = static_cast<int16_t>(option_index + 1);
    // The Click handler sets the choice's defaults; an index with no option
    // fails here, into the caller's trap.
    Ctl("optForm", option_index).SetValue(true);
    // Read again: the stored subject wins over the default just set.
    options.GetOptionsFromForm(nodeForm);
  }
  // Its Change handler runs the validity step.
  Ctl("txtEmailAddr").SetText(options.strEmailAddr);
  Ctl("txtResponse").SetText(GetHiddenField(nodeForm, "qln_OKMessage"));
  // Last, so it outranks what the Change handler found: a stored form can
  // always be finished again.
  bFinishAllowed = true;
}

}  // namespace formwiz
