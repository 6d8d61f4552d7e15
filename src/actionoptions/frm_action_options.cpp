#include "actionoptions/frm_action_options.h"

namespace formwiz {

frmActionOptions& frmActionOptions::Instance() {
  thread_local frmActionOptions instance;
  return instance;
}

}  // namespace formwiz
