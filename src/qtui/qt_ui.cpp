#include "qtui/qt_ui.h"

#include <QMessageBox>
#include <QString>

#include "qtui/form_view.h"
#include "toolkit/form.h"

namespace formwiz::qtui {

QWidget* QtUi::ParentFor(const tk::Form* owner) const {
  for (auto it = views_.rbegin(); it != views_.rend(); ++it) {
    if (&(*it)->form() == owner) return *it;
  }
  // Without an owner of ours a dialog still stands over the innermost one on
  // show, which is modal and would otherwise hide it.
  return views_.empty() ? window_ : views_.back();
}

void QtUi::MsgBox(std::string_view text, std::string_view title) {
  QMessageBox box(ParentFor(nullptr));
  box.setWindowTitle(QString::fromUtf8(title.data(), qsizetype(title.size())));
  box.setTextFormat(Qt::PlainText);
  box.setText(QString::fromUtf8(text.data(), qsizetype(text.size())));
  box.setIcon(QMessageBox::NoIcon);
  box.setStandardButtons(QMessageBox::Ok);
  box.exec();
}

void QtUi::RunModal(tk::Form& form, tk::Form* owner) {
  FormView view(form, ParentFor(owner));
  views_.push_back(&view);
  struct Pop {
    std::vector<FormView*>& views;
    ~Pop() { views.pop_back(); }
  } pop{views_};
  view.Run();
}

}  // namespace formwiz::qtui
