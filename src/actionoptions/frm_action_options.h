// frmActionOptions: the Form Action Options dialog, and the store of where a
// form's data goes. One shared instance per thread, created on first
// reference; its fields outlive the dialog's Unload.
#pragma once

namespace formwiz {

class frmActionOptions {
 public:
  // This thread's instance. Reaching it loads no dialog.
  static frmActionOptions& Instance();

  // The guard against a call from inside a call: raised by InsertNewObject
  // around UpdateItem, read by OnOpen. Held here because this object is the
  // one every clsFormWiz of the thread shares.
  bool bInUse = false;
};

}  // namespace formwiz
