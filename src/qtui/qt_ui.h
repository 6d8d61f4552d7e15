// The Ui of a desktop session: the toolkit model's dialogs shown as Qt
// widgets, each modal show running the dialog's own event loop, and message
// boxes as QMessageBox with the system's texts and titles.
#pragma once

#include <string_view>
#include <vector>

#include "toolkit/ui.h"

class QWidget;

namespace formwiz::qtui {

class FormView;

class QtUi : public Ui {
 public:
  // `window` is the parent of dialogs shown without an owner (the editor's
  // main window); may be null.
  explicit QtUi(QWidget* window = nullptr) : window_(window) {}

  void MsgBox(std::string_view text, std::string_view title) override;
  // Builds a view of `form` over the view of `owner` and runs it until the
  // form is hidden or unloaded.
  void RunModal(tk::Form& form, tk::Form* owner) override;

  // The view of the innermost dialog on show; null when none is.
  FormView* ActiveView() const {
    return views_.empty() ? nullptr : views_.back();
  }

 private:
  // The window that dialogs and message boxes shown now stand over.
  QWidget* ParentFor(const tk::Form* owner) const;

  QWidget* window_;
  std::vector<FormView*> views_;  // the dialogs on show, innermost last
};

}  // namespace formwiz::qtui
