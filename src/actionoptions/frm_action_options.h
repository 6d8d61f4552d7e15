// frmActionOptions: the Form Action Options dialog, and the store of where a
// form's data goes while a form is edited. One shared instance per thread,
// created on first reference; reaching it or its fields loads no window.
#pragma once

#include <cstdint>
#include <string>

#include "formdoc/kelxml.h"
#include "toolkit/form.h"

namespace formwiz {

class frmActionOptions : public tk::Form {
 public:
  // This thread's instance. Reaching it loads no dialog.
  static frmActionOptions& Instance();

  // --- the nine fields -------------------------------------------------------
  // How the dialog last closed: 1 OK, 2 Cancel, 0 before the first close.
  int32_t mvarResult = 0;
  // The last OK changed at least one setting.
  bool mvarModified = false;
  // The guard against a call from inside a call: raised by InsertNewObject
  // around UpdateItem, read by OnOpen. Held here because this object is the
  // one every clsFormWiz of the thread shares.
  bool bInUse = false;
  bool bSendEmail = false;
  std::string strEmailAddr;
  std::string strEmailSubj;
  bool bHumanReadable = false;
  std::string strActionURL;
  std::string strDefActionURL;

  // Whether the settings are complete enough to finish.
  bool GotValidFormAction() const;
  // Reads the settings from a `form` element and refreshes the controls.
  void GetOptionsFromForm(const KelXmlNode& nodeForm);
  // Writes the settings into a `form` element.
  void SetOptionsIntoForm(const KelXmlNode& nodeForm);
  // Copies the fields into the controls and clears mvarModified.
  void RefreshControls();

  void cmdCancel_Click();
  void cmdOK_Click();
  void optActionCustom_Click();
  void optActionEmail_Click();

  tk::FieldList Fields() const override;
  void CloseFromFrame() override;

 private:
  frmActionOptions() : tk::Form("frmActionOptions") {}

  void UpdateActionControls();
  void BuildControls() override;
  void Form_Load() override;
};

}  // namespace formwiz
