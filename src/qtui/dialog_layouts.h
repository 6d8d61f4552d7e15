// Where the widgets of each dialog stand. The widgets are made from the
// model's controls; these functions only place them, by control name, and
// give the look that the model does not hold (fonts, rules, spacing).
#pragma once

#include <map>
#include <string>
#include <string_view>

class QDialog;
class QWidget;

namespace formwiz::tk {
class Control;
class Form;
}  // namespace formwiz::tk

namespace formwiz::qtui {

using WidgetMap = std::map<std::string, QWidget*, std::less<>>;

// Whether a frame is shown as a plain panel, without box or caption, rather
// than as a captioned box.
bool IsPlainPanel(const tk::Form& form, const tk::Control& frame);

// Lays out the widgets of `form` on `dialog`. A widget the dialog's layout
// does not place goes at the end of its frame, so no control is ever lost.
void LayOut(QDialog& dialog, const tk::Form& form, const WidgetMap& widgets);

}  // namespace formwiz::qtui
