#include "qtui/form_view.h"

#include <QAbstractButton>
#include <QButtonGroup>
#include <QCloseEvent>
#include <QGroupBox>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalBlocker>
#include <utility>
#include <vector>

#include "qtui/dialog_layouts.h"
#include "qtui/tick_list_view.h"
#include "toolkit/control.h"
#include "toolkit/form.h"

namespace formwiz::qtui {
namespace {

using tk::ControlKind;
using Kind = tk::UserAction::Kind;

QString Q(const std::string& s) { return QString::fromStdString(s); }

tk::UserAction Action(Kind kind, std::string control = {}) {
  tk::UserAction a;
  a.kind = kind;
  a.control = std::move(control);
  return a;
}

tk::UserAction KeyAction(int key) {
  tk::UserAction a = Action(Kind::kKey);
  a.key = key;
  return a;
}

// What a person sees of a frame: a parked one stands outside the dialog.
bool ShowsOnDialog(const tk::Control& c) {
  return c.Visible() &&
         (c.kind() != ControlKind::kFrame || c.Left() > tk::kParkedLeft);
}

}  // namespace

FormView::FormView(tk::Form& form, QWidget* parent)
    : QDialog(parent), form_(form) {
  setObjectName(Q(form.name()));
  setMouseTracking(true);
  for (const tk::Control* c : form_.Controls()) CreateWidget(*c);
  LayOut(*this, form_, widgets_);
  SetTabOrder();
  Mirror();
}

QWidget* FormView::Widget(std::string_view name) const {
  const auto it = widgets_.find(name);
  return it == widgets_.end() ? nullptr : it->second;
}

void FormView::CreateWidget(const tk::Control& c) {
  const std::string name = c.Name();
  QWidget* w = nullptr;
  switch (c.kind()) {
    case ControlKind::kLabel: {
      auto* label = new QLabel(this);
      // Captions come from definitions too; they are never markup.
      label->setTextFormat(Qt::PlainText);
      w = label;
      break;
    }
    case ControlKind::kText: {
      auto* edit = new QLineEdit(this);
      // No setMaxLength: it would cut what the program sets as well. The
      // model enforces the typing limit.
      connect(edit, &QLineEdit::textEdited, this,
              [this, name](const QString& now) { TextEdited(name, now); });
      w = edit;
      break;
    }
    case ControlKind::kOption: {
      auto* option = new QRadioButton(this);
      QButtonGroup*& group = groups_[c.Group()];
      if (group == nullptr) group = new QButtonGroup(this);
      group->addButton(option);
      connect(option, &QRadioButton::clicked, this,
              [this, name] { Input(Action(Kind::kClick, name)); });
      w = option;
      break;
    }
    case ControlKind::kList: {
      auto* list = new TickListView(this);
      // The model asks for a tick only when a person gives one; the view's
      // own changes to the current row come while the model's changes are
      // told, under a signal blocker (Input).
      connect(&list->rows(), &ListRowsModel::TickRequested, this,
              [this, name](int row, bool checked) {
                tk::UserAction a = Action(Kind::kCheck, name);
                a.row = row;
                a.value = checked;
                Input(a);
              });
      connect(list, &TickListView::currentRowChanged, this,
              [this, name](int row) {
                if (row < 0) return;  // a person cannot make no row current
                tk::UserAction a = Action(Kind::kSelect, name);
                a.row = row;
                Input(a);
              });
      list->viewport()->setMouseTracking(true);
      list->viewport()->installEventFilter(this);
      watched_[list->viewport()] = name;
      lists_.push_back(list);
      w = list;
      break;
    }
    case ControlKind::kButton: {
      auto* button = new QPushButton(this);
      // Enter is the model's: see keyPressEvent.
      button->setAutoDefault(false);
      connect(button, &QPushButton::clicked, this,
              [this, name] { Input(Action(Kind::kClick, name)); });
      w = button;
      break;
    }
    case ControlKind::kFrame:
      if (IsPlainPanel(form_, c)) {
        w = new QFrame(this);
      } else {
        w = new QGroupBox(this);
      }
      break;
  }
  w->setObjectName(Q(name));
  w->setMouseTracking(true);
  w->installEventFilter(this);
  watched_[w] = name;
  widgets_[name] = w;
}

void FormView::SetTabOrder() {
  QWidget* previous = nullptr;
  for (const tk::Control* c : form_.Controls()) {
    QWidget* w = Widget(c->Name());
    if (w->focusPolicy() == Qt::NoFocus) continue;
    if (previous != nullptr) setTabOrder(previous, w);
    previous = w;
  }
}

void FormView::Run() {
  if (!form_.Shown()) return;
  if (QWidget* first = FirstFocus(nullptr)) {
    first->setFocus(Qt::OtherFocusReason);
  }
  exec();
}

QWidget* FormView::FirstFocus(const tk::Control* panel) const {
  // The first control in tab order that a person can reach and that is not
  // a button: the wizard's buttons come first in its tab order, and focus
  // put on Cancel or Finish would press it on the next Enter or Space. A
  // dialog or panel of buttons alone starts on its first button.
  const std::vector<tk::Control*> controls = form_.Controls();
  QWidget* first = nullptr;
  for (const tk::Control* c : controls) {
    bool on_panel = panel == nullptr;
    for (const tk::Control* f = c->Container(); f != nullptr && !on_panel;
         f = f->Container()) {
      on_panel = f == panel;
    }
    QWidget* w = Widget(c->Name());
    if (!on_panel || !(w->focusPolicy() & Qt::TabFocus) || !c->Reachable()) {
      continue;
    }
    if (c->kind() == ControlKind::kOption) {
      // A group of options is entered at its selected one: focus on another
      // would select that one on the next Space.
      for (const tk::Control* o : controls) {
        if (o->kind() == ControlKind::kOption && o->Group() == c->Group() &&
            o->Value() && o->Reachable()) {
          w = Widget(o->Name());
          break;
        }
      }
    }
    if (c->kind() != ControlKind::kButton) return w;
    if (first == nullptr) first = w;
  }
  return first;
}

void FormView::KeepFocus(const std::string& focused_before) {
  std::set<std::string, std::less<>> reachable;
  const tk::Control* arrived = nullptr;
  for (const tk::Control* c : form_.Controls()) {
    if (c->kind() != ControlKind::kFrame || !c->Reachable()) continue;
    reachable.insert(c->Name());
    if (arrived == nullptr && !reachable_frames_.contains(c->Name())) {
      arrived = c;
    }
  }
  reachable_frames_ = std::move(reachable);
  // The first show places the focus itself (Run).
  if (!std::exchange(mirrored_, true)) return;
  QWidget* to = nullptr;
  if (arrived != nullptr) to = FirstFocus(arrived);
  const tk::Control* before = form_.Find(focused_before);
  if (to == nullptr && (before == nullptr || !before->Reachable())) {
    to = FirstFocus(nullptr);
  }
  if (to != nullptr) to->setFocus(Qt::OtherFocusReason);
}

void FormView::Input(const tk::UserAction& action) {
  {
    // The lists' views follow the changes as they are told, and move their
    // current row themselves when it is removed; none of that is a person's.
    std::vector<QSignalBlocker> blockers;
    blockers.reserve(lists_.size());
    for (TickListView* list : lists_) blockers.emplace_back(list);
    tk::ApplyUserInput(form_, action);
    for (TickListView* list : lists_) list->rows().Settle();
  }
  if (!form_.Shown()) {
    // The controls may be gone already (an unloaded form); nothing to mirror.
    done(QDialog::Accepted);
    return;
  }
  Mirror();
}

void FormView::TextEdited(const std::string& name, const QString& now) {
  const tk::Control* c = form_.Find(name);
  if (c == nullptr) return;
  const std::string before = c->Text();
  const std::string after = now.toStdString();
  if (after.starts_with(before)) {
    // Typed at the end: the model takes characters up to its limit.
    tk::UserAction a = Action(Kind::kType, name);
    a.text = after.substr(before.size());
    Input(a);
  } else if (before.starts_with(after)) {
    tk::UserAction a = Action(Kind::kBackspace, name);
    a.count = tk::CodePointCount(before.substr(after.size()));
    Input(a);
  } else {
    // An edit inside the text. One past the limit is refused whole, as the
    // box takes no more characters; any other is the box cleared and the
    // new text typed, so the box's change handler sees every step.
    const int limit = c->MaxLength();
    const int length = tk::CodePointCount(after);
    if (limit > 0 && length > limit && length > tk::CodePointCount(before)) {
      Mirror();
      return;
    }
    Input(Action(Kind::kClear, name));
    if (!form_.Shown() || after.empty()) return;
    tk::UserAction a = Action(Kind::kType, name);
    a.text = after;
    Input(a);
  }
}

void FormView::Mirror() {
  if (!form_.Loaded()) return;
  // Hiding or disabling the focused widget below moves Qt's focus along the
  // tab order, onto whatever comes next; remember whose it was.
  const auto focused = watched_.find(focusWidget());
  const std::string focused_before =
      focused == watched_.end() ? std::string() : focused->second;
  setWindowTitle(Q(form_.Caption()));
  // Options of one group are made exclusive by the model; the button group
  // would refuse a group with none selected, which the model may have.
  for (auto& [number, group] : groups_) group->setExclusive(false);
  for (tk::Control* c : form_.Controls()) {
    if (QWidget* w = Widget(c->Name())) MirrorControl(*c, w);
  }
  for (auto& [number, group] : groups_) group->setExclusive(true);
  KeepFocus(focused_before);
}

void FormView::MirrorControl(tk::Control& c, QWidget* w) {
  const QSignalBlocker block(w);
  w->setVisible(ShowsOnDialog(c));
  w->setEnabled(c.Enabled());
  switch (c.kind()) {
    case ControlKind::kLabel:
      static_cast<QLabel*>(w)->setText(Q(c.Caption()));
      break;
    case ControlKind::kText: {
      auto* edit = static_cast<QLineEdit*>(w);
      // Only a differing text is set, so the cursor stays where it is. A
      // text the program put in shows from its start, unless it is the box
      // the person types into: that is its window's focus widget, also while
      // the window is not the active one (hasFocus would say no then, and
      // each key would land in front of the one before).
      if (edit->text() != Q(c.Text())) {
        edit->setText(Q(c.Text()));
        if (edit->window()->focusWidget() != edit) edit->setCursorPosition(0);
      }
      break;
    }
    case ControlKind::kOption: {
      auto* option = static_cast<QRadioButton*>(w);
      option->setText(Q(c.Caption()));
      option->setChecked(c.Value());
      break;
    }
    case ControlKind::kList: {
      // The rows follow the toolkit list as it tells its changes; only the
      // current row, which it does not tell, is copied here.
      auto* list = static_cast<TickListView*>(w);
      list->rows().Attach(&c);
      list->rows().Settle();
      list->SetCurrentRow(c.ListIndex());
      break;
    }
    case ControlKind::kButton: {
      auto* button = static_cast<QPushButton*>(w);
      // A button without a caption shows a picture, chosen by the layout.
      if (!c.Caption().empty()) button->setText(Q(c.Caption()));
      button->setDefault(c.IsDefault());
      break;
    }
    case ControlKind::kFrame:
      if (auto* box = qobject_cast<QGroupBox*>(w)) {
        box->setTitle(Q(c.Caption()));
      }
      break;
  }
}

void FormView::keyPressEvent(QKeyEvent* event) {
  switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter: {
      // A focused button takes Enter, as it takes Space; anywhere else
      // Enter is the model's: its default button, if it has one.
      const auto* focused = qobject_cast<QPushButton*>(focusWidget());
      const auto it = watched_.find(focused);
      if (focused != nullptr && it != watched_.end()) {
        Input(Action(Kind::kClick, it->second));
      } else {
        Input(KeyAction(tk::kKeyReturn));
      }
      return;
    }
    case Qt::Key_Escape:
      // Not QDialog's reject: the model decides what Escape presses.
      Input(KeyAction(tk::kKeyEscape));
      return;
    case Qt::Key_F1:
      Input(KeyAction(tk::kKeyF1));
      return;
    default:
      QDialog::keyPressEvent(event);
  }
}

void FormView::closeEvent(QCloseEvent* event) {
  // The model's close box decides whether the dialog goes; Input ends the
  // run when it does.
  event->ignore();
  Input(Action(Kind::kClose));
}

bool FormView::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::MouseMove) {
    const auto* move = static_cast<QMouseEvent*>(event);
    const auto it = watched_.find(watched);
    // A move that a widget does not take goes on to its parents; the
    // control under the pointer has had it already.
    const bool seen = move->timestamp() == hover_stamp_ &&
                      move->globalPosition() == hover_pos_;
    if (it != watched_.end() && move->buttons() == Qt::NoButton && !seen) {
      hover_stamp_ = move->timestamp();
      hover_pos_ = move->globalPosition();
      Input(Action(Kind::kHover, it->second));
    }
  }
  return QDialog::eventFilter(watched, event);
}

}  // namespace formwiz::qtui
