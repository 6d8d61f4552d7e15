// The frame of frmWizard: its controls outside the steps, how a run starts
// and ends, and which step is on show with which buttons working.
#include <string>

#include "actionoptions/frm_action_options.h"
#include "component/failure.h"
#include "component/utils.h"
#include "formdoc/form_doc.h"
#include "wizard/frm_wizard.h"

namespace formwiz {
namespace {

constexpr int16_t kLastStep = 3;

// How a step is entered, for GoToStep.
constexpr int16_t kEnterNone = 0;
constexpr int16_t kEnterBack = 1;
constexpr int16_t kEnterForward = 2;

struct StepPanel {
  const char* panel_caption;
  int heading_index;  // the lblStep that heads the panel
  const char* heading_caption;
};

// Panel index and step number agree; the heading labels were numbered in
// another order and keep it.
constexpr StepPanel kStepPanels[] = {
    {"Choose a form", 0, "Step 1: Choose a form"},
    {"Enter your email address", 3, "Step 2: Enter your e-mail address"},
    {"Set the response", 2, "Step 3: Set the response message"},
    {"Customize the form", 1, "Step 4: Customize the form"},
};

constexpr const char* kNavCaptions[] = {"Help", "Cancel", "< &Back", "&Next >",
                                        "&Finish"};

}  // namespace

frmWizard& frmWizard::Instance() {
  thread_local frmWizard instance;
  return instance;
}

void frmWizard::BuildControls() {
  // Tab order is creation order: the navigation buttons left to right, then
  // the controls of the panels, step by step.
  BuildFrameControls();
  BuildFormChoiceControls();
  BuildActionResponseControls();
  BuildFieldListControls();
  BuildFieldDetailControls();
}

void frmWizard::BuildFrameControls() {
  SetCaption("Quillan Form Wizard");
  SetKeyPreview(true);

  // picNav is the strip below the panels that carries the buttons. The
  // etched rule on it (Line1) is drawing only, with no state, so the model
  // leaves it to the views.
  tk::Control& picNav = Add(tk::ControlKind::kFrame, "picNav");
  for (int i = 0; i <= kNavFinish; ++i) {
    tk::Control& button = Add(tk::ControlKind::kButton, "cmdNav", i);
    button.SetCaption(kNavCaptions[i]);
    button.SetContainer(&picNav);
    button.on_click = [this, i] { cmdNav_Click(i); };
  }
  // The wizard has no help to offer; the button stays hidden for good.
  Ctl("cmdNav", kNavHelp).SetVisible(false);
  // Escape cancels. No button is the default: Enter presses only the
  // focused one.
  Ctl("cmdNav", kNavCancel).SetCancel(true);

  for (int step = 0; step <= kLastStep; ++step) {
    const StepPanel& info = kStepPanels[step];
    tk::Control& panel = Add(tk::ControlKind::kFrame, "fraStep", step);
    panel.SetCaption(info.panel_caption);
    panel.SetEnabled(false);
    panel.on_mouse_move = [this, step] { fraStep_MouseMove(step); };
    tk::Control& heading =
        Add(tk::ControlKind::kLabel, "lblStep", info.heading_index);
    heading.SetCaption(info.heading_caption);
    heading.SetContainer(&panel);
  }
}

void frmWizard::Form_Load() {
  // Every run starts from the same first state, also a second run in one
  // process, where the fields kept the values of the last run: a close
  // through the frame must leave Result 0, and no form is chosen yet. The
  // caller unloads a wizard that is still loaded (a finished edit only hides
  // it) before loading it for a run, so this runs at each start.
  mvarResult = 0;
  nFormIndex = 0;
  bHelpRequested = false;
  bFinishAllowed = false;
  for (int step = 0; step <= kLastStep; ++step) {
    Ctl("fraStep", step).SetLeft(tk::kParkedLeft);
  }
  GoToStep(0, kEnterNone);
}

void frmWizard::SetImpl(const KelXmlElement& elem) {
  // No trap here: a failure belongs to the caller's.
  elemImpl = elem;
  LoadFormInfo();
  frmActionOptions& options = frmActionOptions::Instance();
  options.Load();
  const KelXmlElement form = FirstFormChild(elemImpl);
  if (form) options.GetOptionsFromForm(form);
  if (mvarFromScratch) {
    // Its Click handler makes the first form choice current.
    Ctl("optForm", 0).SetValue(true);
  } else {
    LoadExistingSettings(form);
    // An edit opens on the last step, entered forward so that the field
    // list is there before the dialog shows.
    GoToStep(kLastStep, kEnterForward);
  }
}

void frmWizard::GoToStep(int16_t nStep, int16_t nDirection) {
  // No button leads outside the steps; a stray call must not leave the step
  // on show disabled.
  if (nStep < 0 || nStep > kLastStep) return;
  // Step 3 is only ever entered forward, and each entry rebuilds its list,
  // so that it follows a form choice made on step 0 meanwhile.
  if (nStep == kLastStep && nDirection == kEnterForward) LoadFieldList();
  Ctl("fraStep", nCurStep).SetEnabled(false);
  Ctl("fraStep", nStep).SetLeft(0);
  if (nStep != nCurStep) Ctl("fraStep", nCurStep).SetLeft(tk::kParkedLeft);
  Ctl("fraStep", nStep).SetEnabled(true);
  UpdateNavButtons(nStep);
}

void frmWizard::UpdateNavButtons(int16_t nStep) {
  nCurStep = nStep;
  bool back = true;
  bool next = true;
  switch (nStep) {
    case 0:
      back = false;
      break;
    case 1:
      next = frmActionOptions::Instance().GotValidFormAction();
      break;
    case kLastStep:
      next = false;
      break;
    default:
      break;
  }
  Ctl("cmdNav", kNavBack).SetEnabled(back);
  Ctl("cmdNav", kNavNext).SetEnabled(next);
  Ctl("cmdNav", kNavFinish).SetEnabled(bFinishAllowed);
}

void frmWizard::cmdNav_Click(int index) {
  switch (index) {
    case kNavHelp: {
      // There is no help system behind the wizard. A request is noted and
      // its context number worked out (1010 to 1040, by step) for the day
      // one exists; nothing is shown.
      bHelpRequested = true;
      [[maybe_unused]] const int32_t help_context = (nCurStep + 1) * 10 + 1000;
      break;
    }
    case kNavCancel:
      mvarResult = 2;
      Unload();
      break;
    case kNavBack:
      GoToStep(static_cast<int16_t>(nCurStep - 1), kEnterBack);
      break;
    case kNavNext:
      GoToStep(static_cast<int16_t>(nCurStep + 1), kEnterForward);
      break;
    case kNavFinish:
      if (SaveSettings()) mvarResult = 1;
      // Hidden either way: a save that failed has been reported, and the
      // caller commits nothing without Result 1.
      Hide();
      break;
    default:
      break;
  }
}

void frmWizard::Form_KeyDown(int key_code, int /*shift*/) {
  if (key_code == tk::kKeyF1) cmdNav_Click(kNavHelp);
}

void frmWizard::Form_Unload() {
  // Nothing vetoes the unload, and each step runs whatever the one before
  // it met.
  (void)Catch([] { frmActionOptions::Instance().Unload(); });
  colFormInfo.clear();
  colFields.clear();
  elemImpl = KelXmlElement();
}

void frmWizard::OnEventFailure(const Failure& failure) {
  // A failure that no handler caught must not reach the host. It is shown
  // with the component's one internal error message, like every other
  // failure, and the dialog goes on: the user can still finish or cancel.
  ReportInternalError(code::kEventFailure, failure.number, failure.description);
}

tk::FieldList frmWizard::Fields() const {
  return {
      {"nCurStep", int64_t{nCurStep}},
      {"bFinishAllowed", bFinishAllowed},
      {"mvarResult", int64_t{mvarResult}},
      {"elemImpl", !elemImpl.IsNull()},
      {"colFields.Count", static_cast<int64_t>(colFields.size())},
      {"colFormInfo.Count", static_cast<int64_t>(colFormInfo.size())},
      {"nFormIndex", int64_t{nFormIndex}},
      {"mvarFromScratch", mvarFromScratch},
      {"bHelpRequested", bHelpRequested},
  };
}

}  // namespace formwiz
