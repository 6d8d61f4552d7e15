// The one entry point for what a person does to a dialog. The scripted Ui
// and the Qt views both go through it, so tests and people meet the same
// rules: a control that is disabled, hidden, on a parked or disabled panel,
// or not on the dialog takes no input; typing stops at the box's limit;
// Enter presses the default button and Escape the cancel button, after key
// preview has seen the key; the close box closes the dialog.
#pragma once

#include <string>

#include "toolkit/form.h"

namespace formwiz::tk {

struct UserAction {
  enum class Kind {
    kClick,      // a button or an option button
    kType,       // `text`, one character at a time, at the end of the box
    kClear,      // select all and delete: one change, none when empty
    kBackspace,  // delete the last character, `count` times
    kCheck,      // set the tick of `row` to `value`
    kSelect,     // make `row` current
    kHover,      // the mouse pointer over a control or panel
    kKey,        // `key`: kKeyReturn, kKeyEscape or kKeyF1
    kClose,      // the close box of the title bar
  };
  Kind kind = Kind::kClick;
  std::string control;  // full name: "cmdNav(3)", "lstFields"
  std::string text;
  int row = 0;
  bool value = false;
  int count = 1;
  int key = 0;
};

// What became of an action.
struct InputOutcome {
  bool ignored = false;
  // Why it was ignored: "disabled", "hidden", "parked", "no such control",
  // "not a list", "no such row", ...
  std::string why;
};

// Applies `action` to `form`, the dialog on show. A failure raised by an
// event handler is not let out: it goes to the form's OnEventFailure, and
// the dialog stays usable.
InputOutcome ApplyUserInput(Form& form, const UserAction& action);

}  // namespace formwiz::tk
