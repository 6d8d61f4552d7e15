#include "toolkit/input.h"

#include "component/failure.h"

namespace formwiz::tk {
namespace {

using Kind = UserAction::Kind;

InputOutcome Ignored(std::string why) { return {true, std::move(why)}; }

// The button that a key presses, if any: Enter the default, Escape the
// cancel button.
Control* ButtonForKey(Form& form, int key) {
  for (Control* c : form.Controls()) {
    if (c->kind() != ControlKind::kButton) continue;
    if ((key == kKeyReturn && c->IsDefault()) ||
        (key == kKeyEscape && c->IsCancel())) {
      return c;
    }
  }
  return nullptr;
}

// Removes the last code point of a UTF-8 string.
void PopCodePoint(std::string& s) {
  while (!s.empty()) {
    const bool lead = (static_cast<unsigned char>(s.back()) & 0xC0) != 0x80;
    s.pop_back();
    if (lead) return;
  }
}

// The next code point of `s` from `pos`, as bytes.
std::string NextCodePoint(const std::string& s, size_t& pos) {
  size_t end = pos + 1;
  while (end < s.size() &&
         (static_cast<unsigned char>(s[end]) & 0xC0) == 0x80) {
    ++end;
  }
  std::string cp = s.substr(pos, end - pos);
  pos = end;
  return cp;
}

InputOutcome ApplyKey(Form& form, int key) {
  if (form.KeyPreview()) form.Form_KeyDown(key, 0);
  if (!form.Shown()) return {};  // the key preview closed the dialog
  if (Control* button = ButtonForKey(form, key)) {
    if (button->Reachable()) RunEvent(button->on_click);
  }
  return {};
}

InputOutcome ApplyToControl(Form& form, Control& c, const UserAction& a) {
  std::string why;
  if (!c.Reachable(&why)) return Ignored(why);
  switch (a.kind) {
    case Kind::kClick:
      if (c.kind() == ControlKind::kOption) {
        // A click on the selected option changes nothing and raises nothing.
        c.SetValue(true);
      } else if (c.kind() == ControlKind::kButton) {
        RunEvent(c.on_click);
      } else {
        return Ignored("not a button");
      }
      return {};
    case Kind::kType: {
      if (c.kind() != ControlKind::kText) return Ignored("not a text box");
      size_t pos = 0;
      while (pos < a.text.size()) {
        if (c.MaxLength() > 0 && CodePointCount(c.Text()) >= c.MaxLength()) {
          break;  // the box takes no more
        }
        c.SetText(c.Text() + NextCodePoint(a.text, pos));
        // A handler may have hidden or disabled the box, or closed the form.
        if (!form.Shown() || !c.Reachable()) break;
      }
      return {};
    }
    case Kind::kClear:
      if (c.kind() != ControlKind::kText) return Ignored("not a text box");
      c.SetText("");
      return {};
    case Kind::kBackspace:
      if (c.kind() != ControlKind::kText) return Ignored("not a text box");
      for (int i = 0; i < a.count && !c.Text().empty(); ++i) {
        std::string t = c.Text();
        PopCodePoint(t);
        c.SetText(t);
        if (!form.Shown() || !c.Reachable()) break;
      }
      return {};
    case Kind::kCheck:
    case Kind::kSelect:
      if (c.kind() != ControlKind::kList) return Ignored("not a list");
      if (a.row < 0 || a.row >= c.ListCount()) return Ignored("no such row");
      if (a.kind == Kind::kCheck) {
        c.SetSelected(a.row, a.value);
      } else {
        c.SetListIndex(a.row);
      }
      return {};
    case Kind::kHover:
      RunEvent(c.on_mouse_move);
      return {};
    case Kind::kKey:
    case Kind::kClose:
      break;
  }
  return {};
}

void Apply(Form& form, const UserAction& action, InputOutcome& outcome) {
  switch (action.kind) {
    case Kind::kKey:
      outcome = ApplyKey(form, action.key);
      return;
    case Kind::kClose:
      form.CloseFromFrame();
      return;
    default:
      break;
  }
  Control* c = form.Find(action.control);
  if (c == nullptr) {
    outcome = Ignored("not on this dialog");
    return;
  }
  outcome = ApplyToControl(form, *c, action);
}

}  // namespace

InputOutcome ApplyUserInput(Form& form, const UserAction& action) {
  if (!form.Shown()) return Ignored("no dialog");
  InputOutcome outcome;
  // The whole action counts as one event, so that controls of a form that
  // a handler unloads stay alive until the action is over.
  auto failure =
      Catch([&] { RunEvent([&] { Apply(form, action, outcome); }); });
  if (failure) form.OnEventFailure(*failure);
  return outcome;
}

}  // namespace formwiz::tk
