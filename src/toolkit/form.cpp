#include "toolkit/form.h"

#include <algorithm>

#include "component/failure.h"
#include "toolkit/ui.h"

namespace formwiz::tk {
namespace {

// How many event handlers are running on this thread. A form unloaded by a
// handler (Cancel unloads the wizard from inside cmdNav_Click) keeps its
// controls here until the last handler has returned, since the running
// handler belongs to one of them.
thread_local int event_depth = 0;
thread_local std::vector<std::unique_ptr<Control>> graveyard;

void Bury(std::vector<std::unique_ptr<Control>>& controls) {
  for (auto& c : controls) graveyard.push_back(std::move(c));
  controls.clear();
  if (event_depth == 0) graveyard.clear();
}

}  // namespace

void RunEvent(const std::function<void()>& handler) {
  if (!handler) return;
  struct Depth {
    Depth() { ++event_depth; }
    ~Depth() {
      if (--event_depth == 0) graveyard.clear();
    }
  } depth;
  handler();
}

void Form::Load() {
  if (loaded_) return;
  loaded_ = true;
  caption_.clear();
  key_preview_ = false;
  BuildControls();
  Form_Load();
}

void Form::Unload() {
  if (!loaded_) return;
  Form_Unload();
  loaded_ = false;
  shown_ = false;
  index_.clear();
  Bury(controls_);
}

void Form::ShowModal(Form* owner) {
  Load();
  shown_ = true;
  // Whatever way the Ui's run ends, a failure included, the show is over.
  struct EndShow {
    bool& shown;
    ~EndShow() { shown = false; }
  } end_show{shown_};
  CurrentUi().RunModal(*this, owner);
}

void Form::Hide() { shown_ = false; }

Control& Form::Ctl(std::string_view base_name, int index) {
  Load();
  // Handlers name their controls at every event: a list of ten thousand
  // rows ticks them one by one, so this is a lookup, not a search.
  const auto it = index_.find(IndexProbe(base_name, index));
  if (it == index_.end()) Raise(err::kObjectNotSet);
  return *it->second;
}

Control* Form::Find(std::string_view full_name) const {
  for (const auto& c : controls_) {
    if (c->Name() == full_name) return c.get();
  }
  return nullptr;
}

std::vector<Control*> Form::Controls() const {
  std::vector<Control*> list;
  for (const auto& c : controls_) list.push_back(c.get());
  std::stable_sort(list.begin(), list.end(), [](Control* a, Control* b) {
    return a->TabIndex() < b->TabIndex();
  });
  return list;
}

void Form::Form_KeyDown(int, int) {}

void Form::CloseFromFrame() { Unload(); }

void Form::OnEventFailure(const Failure& failure) {
  CurrentUi().MsgBox(
      std::to_string(failure.number) + ": " + failure.description, "Error");
}

Control& Form::Add(ControlKind kind, std::string base_name, int index) {
  controls_.push_back(
      std::make_unique<Control>(this, kind, std::move(base_name), index));
  Control& c = *controls_.back();
  // Of two controls with the same name, the first one added is found.
  index_.emplace(IndexKey(c.base_name(), index), &c);
  c.SetTabIndex(static_cast<int>(controls_.size()) - 1);
  return c;
}

}  // namespace formwiz::tk
