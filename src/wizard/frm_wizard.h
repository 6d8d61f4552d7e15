// frmWizard: the four-step modal dialog through which a person makes a new
// form or changes a stored one. One shared instance per thread. It works
// directly on the tree of the `impl` element it is given.
//
// The source is split by concern: wizard_frame.cpp (controls of the frame,
// Form_Load, Impl, GoToStep, UpdateNavButtons, cmdNav_Click, Form_KeyDown,
// Form_Unload), form_choice.cpp (step 0), action_response.cpp (steps 1 and
// 2, SaveSettings), field_list.cpp (step 3's list) and field_detail.cpp
// (step 3's boxes).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "formdoc/kelxml.h"
#include "toolkit/form.h"

namespace formwiz {

class frmWizard : public tk::Form {
 public:
  // Indices of the cmdNav buttons, left to right.
  static constexpr int kNavHelp = 0;
  static constexpr int kNavCancel = 1;
  static constexpr int kNavBack = 2;
  static constexpr int kNavNext = 3;
  static constexpr int kNavFinish = 4;

  // This thread's instance; reaching it loads nothing.
  static frmWizard& Instance();

  // Write-only: True for a new form. Set before Impl.
  void SetFromScratch(bool newbval) { mvarFromScratch = newbval; }
  // Takes the `impl` element and prepares the whole dialog. Lets failures
  // out to the caller's trap.
  void SetImpl(const KelXmlElement& elem);
  // 1 finished, 2 cancelled, 0 nothing reported. Readable after Hide and
  // after Unload.
  int32_t Result() const { return mvarResult; }

  tk::FieldList Fields() const override;
  void Form_KeyDown(int key_code, int shift) override;
  // Reports a failure that left an event handler as internal error 204.
  void OnEventFailure(const Failure& failure) override;

  // --- fields --------------------------------------------------------------
  int16_t nCurStep = 0;
  bool bFinishAllowed = false;
  int32_t mvarResult = 0;
  KelXmlElement elemImpl;
  std::vector<KelXmlNode> colFields;    // position p is colFields[p - 1]
  std::vector<KelXmlNode> colFormInfo;  // likewise
  int16_t nFormIndex = 0;
  bool mvarFromScratch = false;
  // Set by a help request; nothing reads it, as the wizard has no help.
  bool bHelpRequested = false;

  // --- the frame -----------------------------------------------------------
  void GoToStep(int16_t nStep, int16_t nDirection);
  void UpdateNavButtons(int16_t nStep);
  void cmdNav_Click(int index);

  // --- step 0: form choice -------------------------------------------------
  void LoadFormInfo();
  std::string GetInfoText(const KelXmlNode& node, const std::string& strTag);
  void ShowFormDesc(int16_t nIndex);
  void LoadExistingSettings(const KelXmlNode& nodeForm);
  void optForm_Click(int index);
  void optForm_MouseMove(int index);
  void fraStep_MouseMove(int index);

  // --- steps 1 and 2: action and response ---------------------------------
  void txtEmailAddr_Change();
  void cmdActionOptions_Click();
  bool SaveSettings();

  // --- step 3: field list --------------------------------------------------
  void LoadFieldList();
  bool IsFieldIncluded(const KelXmlNode& node) const;
  bool IsFieldHidden(const KelXmlNode& node) const;
  void SetFieldIncluded(const KelXmlNode& node, bool bInclude);
  void ReplaceListItem(tk::Control& lst, const std::string& strText);
  void lstFields_ItemCheck(int Item);
  void cmdShift_Click(int index);

  // --- step 3: field detail ------------------------------------------------
  void lstFields_Click();
  void txtFieldName_Change();
  void txtFieldPrompt_Change();
  void txtParam_Change(int index);

 private:
  frmWizard() : tk::Form("frmWizard") {}

  void BuildControls() override;
  void Form_Load() override;
  void Form_Unload() override;

  // Each concern builds its own controls, on its panel.
  void BuildFrameControls();
  void BuildFormChoiceControls();
  void BuildActionResponseControls();
  void BuildFieldListControls();
  void BuildFieldDetailControls();

  // The node of the current row of lstFields, or null.
  KelXmlNode CurrentFieldNode();
};

}  // namespace formwiz
