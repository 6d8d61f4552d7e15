#include "script/scripted_ui.h"

#include <variant>

#include "toolkit/control.h"
#include "toolkit/input.h"

namespace formwiz::script {
namespace {

const char* KindName(tk::ControlKind kind) {
  switch (kind) {
    case tk::ControlKind::kLabel:
      return "label";
    case tk::ControlKind::kText:
      return "text";
    case tk::ControlKind::kOption:
      return "option";
    case tk::ControlKind::kList:
      return "list";
    case tk::ControlKind::kButton:
      return "button";
    case tk::ControlKind::kFrame:
      return "frame";
  }
  return "unknown";
}

Json ControlState(const tk::Control& c) {
  Json state = {{"kind", KindName(c.kind())}};
  switch (c.kind()) {
    case tk::ControlKind::kText:
      state["text"] = c.Text();
      if (!c.Tag().empty()) state["tag"] = c.Tag();
      break;
    case tk::ControlKind::kOption:
      state["caption"] = c.Caption();
      state["value"] = c.Value();
      break;
    case tk::ControlKind::kList: {
      Json rows = Json::array();
      for (const tk::ListRow& row : c.Rows()) {
        rows.push_back({{"text", row.text}, {"checked", row.checked}});
      }
      state["rows"] = std::move(rows);
      state["current"] = c.ListIndex();
      break;
    }
    case tk::ControlKind::kFrame:
      state["caption"] = c.Caption();
      state["left"] = c.Left();
      break;
    case tk::ControlKind::kLabel:
    case tk::ControlKind::kButton:
      state["caption"] = c.Caption();
      break;
  }
  state["visible"] = c.Visible();
  state["enabled"] = c.Enabled();
  return state;
}

}  // namespace

Json Snapshot(const tk::Form& form) {
  Json fields = Json::object();
  for (const auto& [name, value] : form.Fields()) {
    std::visit([&, &name = name](const auto& v) { fields[name] = v; }, value);
  }
  Json controls = Json::object();
  for (const tk::Control* c : form.Controls()) {
    controls[c->Name()] = ControlState(*c);
  }
  return {{"dialog", form.name()},
          {"caption", form.Caption()},
          {"fields", std::move(fields)},
          {"controls", std::move(controls)}};
}

void ScriptedUi::MsgBox(std::string_view text, std::string_view title) {
  events_.push_back({{"msgbox", {{"title", title}, {"text", text}}}});
}

void ScriptedUi::RunModal(tk::Form& form, tk::Form* owner) {
  Json show = {{"show", form.name()}};
  if (owner) show["owner"] = owner->name();
  events_.push_back(std::move(show));
  // A dialog shown from inside this one runs in a nested RunModal, so the
  // form here is always the innermost one on show while this loop turns.
  while (form.Shown()) {
    if (const Step* step = feed_.NextAction()) {
      Apply(*step, &form);
      continue;
    }
    events_.push_back({{"closed", form.name()}, {"why", feed_.WhyNoAction()}});
    tk::UserAction close;
    close.kind = tk::UserAction::Kind::kClose;
    tk::ApplyUserInput(form, close);
    // Whatever the close box did, the show ends here, so that a dialog that
    // would not close cannot hold the run.
    return;
  }
}

void ScriptedUi::Apply(const Step& step, tk::Form* form) {
  if (step.kind == Step::Kind::kSnapshot) {
    events_.push_back(
        {{"snapshot", form ? Snapshot(*form) : Json{{"dialog", nullptr}}}});
    return;
  }
  // Between calls no dialog is on show, and an action finds nothing to act
  // on; it is recorded like any other that a person could not do.
  const tk::InputOutcome outcome = form ? tk::ApplyUserInput(*form, step.action)
                                        : tk::InputOutcome{true, "no dialog"};
  if (outcome.ignored) {
    events_.push_back({{"ignored", step.source}, {"why", outcome.why}});
  }
}

}  // namespace formwiz::script
