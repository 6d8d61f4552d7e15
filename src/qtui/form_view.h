// The Qt view of one dialog of the toolkit model. The widgets are made from
// the model's controls, one per control, named like it ("cmdNav(3)"); what a
// person does to them goes to tk::ApplyUserInput, and after every input the
// model is copied back into the widgets: every control's state, except a
// list's rows, which its view follows row by row as the list tells its
// changes (a list may hold ten thousand rows). The model is the only state:
// a widget never keeps a change the model refused.
#pragma once

#include <QDialog>
#include <QPointF>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "toolkit/input.h"

class QButtonGroup;
class QString;

namespace formwiz::qtui {

class TickListView;

class FormView : public QDialog {
  Q_OBJECT

 public:
  // `form` must be loaded; it outlives the view.
  FormView(tk::Form& form, QWidget* parent);

  tk::Form& form() const { return form_; }
  // The widget of the control named `name`; null when the dialog has none.
  QWidget* Widget(std::string_view name) const;

  // Shows the dialog modally until the form is no longer on show.
  void Run();
  // Copies the model into the widgets: captions, texts, values, current
  // rows, visible and enabled state, the panel on show; a list's rows come
  // in as the list tells its changes.
  void Mirror();

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void closeEvent(QCloseEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void CreateWidget(const tk::Control& c);
  void SetTabOrder();
  // Hands the action to the model; ends the run when the form is no longer
  // on show, and mirrors the model otherwise.
  void Input(const tk::UserAction& action);
  // Turns a person's edit of a text box into the model's typing actions.
  void TextEdited(const std::string& name, const QString& now);
  void MirrorControl(tk::Control& c, QWidget* w);
  // The control that keyboard focus goes to on `panel` (null: the whole
  // dialog); null when none there can take it.
  QWidget* FirstFocus(const tk::Control* panel) const;
  // After a mirror: a panel that came on show takes the focus to its first
  // control, and focus left on a control the model took away goes back to
  // the dialog's first one, so that it never strays onto a button.
  void KeepFocus(const std::string& focused_before);

  tk::Form& form_;
  std::map<std::string, QWidget*, std::less<>> widgets_;
  std::vector<TickListView*> lists_;
  // Control names of the watched widgets (a list's viewport included).
  std::map<const QObject*, std::string> watched_;
  // One button group per option group number.
  std::map<int, QButtonGroup*> groups_;
  // The names of the frames a person could reach at the last mirror.
  std::set<std::string, std::less<>> reachable_frames_;
  bool mirrored_ = false;
  // The last mouse move turned into a hover, so that the same move passed
  // on to the parents is not another one.
  quint64 hover_stamp_ = 0;
  QPointF hover_pos_;
};

}  // namespace formwiz::qtui
