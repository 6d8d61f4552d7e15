// What a person does on the field step of the wizard with 10,000 fields
// listed, each through the whole chain of events it sets off, as the dialog
// model runs it (no window is drawn).
#include <benchmark/benchmark.h>

#include <functional>
#include <string>

#include "actionoptions/frm_action_options.h"
#include "bench/definition.h"
#include "bench/pipeline.h"
#include "formdoc/kelxml.h"
#include "toolkit/input.h"
#include "wizard/frm_wizard.h"

namespace formwiz::bench {
namespace {

constexpr int kRows = 10000;
// One field in seven is not offered for the first form choice and gets no
// row: this many fields give kRows rows.
constexpr int kFields = 11667;

// The wizard on a stored definition with kRows listed fields, opened on its
// field step with the middle row current.
class FieldStep {
 public:
  FieldStep() : wiz_(frmWizard::Instance()) {
    doc_.LoadXml(GeneratedDefinition(kFields));
    wiz_.Unload();
    wiz_.Load();
    wiz_.SetFromScratch(false);
    wiz_.SetImpl(doc_.Root().FirstChild());
    Act(tk::UserAction::Kind::kSelect, "lstFields", kRows / 2);
  }
  ~FieldStep() {
    wiz_.Unload();
    frmActionOptions::Instance().Unload();
  }
  FieldStep(const FieldStep&) = delete;
  FieldStep& operator=(const FieldStep&) = delete;

  frmWizard& wiz() { return wiz_; }
  // Runs `person` while the wizard is on show, as a person using it.
  void WhileShown(std::function<void()> person) {
    quiet_.ui.while_shown = std::move(person);
    wiz_.ShowModal(nullptr);
    quiet_.ui.while_shown = nullptr;
  }
  KelXmlElement impl() const { return doc_.Root().FirstChild(); }
  int rows() { return wiz_.Ctl("lstFields").ListCount(); }
  std::string why_ignored;

  // One action of the person; false when the dialog ignored it.
  bool Act(tk::UserAction::Kind kind, std::string control, int row = 0,
           std::string text = "", bool value = false) {
    tk::UserAction action;
    action.kind = kind;
    action.control = std::move(control);
    action.row = row;
    action.text = std::move(text);
    action.value = value;
    const tk::InputOutcome outcome = tk::ApplyUserInput(wiz_, action);
    if (outcome.ignored) why_ignored = outcome.why;
    return !outcome.ignored;
  }

 private:
  QuietUi quiet_;
  KelXmlDocument doc_;
  frmWizard& wiz_;
};

void Check(benchmark::State& state, FieldStep& step, bool acted) {
  if (!acted) {
    state.SkipWithError(
        ("the dialog ignored the action: " + step.why_ignored).c_str());
  }
  if (step.rows() != kRows) state.SkipWithError("rows went missing");
}

// Runs `first` and `second` in turn while the wizard is on show, one per
// round, each a person's action that must be taken.
template <typename First, typename Second>
void Alternate(benchmark::State& state, First&& first, Second&& second) {
  FieldStep step;
  bool odd = false;
  step.WhileShown([&] {
    for (auto _ : state) {
      odd = !odd;
      Check(state, step, odd ? first(step) : second(step));
    }
  });
}

// Ticks and unticks the middle row in turn.
void BM_TickField(benchmark::State& state) {
  auto tick = [](bool on) {
    return [on](FieldStep& step) {
      return step.Act(tk::UserAction::Kind::kCheck, "lstFields", kRows / 2, "",
                      on);
    };
  };
  Alternate(state, tick(true), tick(false));
}

// Moves the current field up and down in turn.
void BM_MoveField(benchmark::State& state) {
  auto click = [](const char* button) {
    return [button](FieldStep& step) {
      return step.Act(tk::UserAction::Kind::kClick, button);
    };
  };
  Alternate(state, click("cmdShift(0)"), click("cmdShift(1)"));
}

// One keystroke in the name box, typing and deleting in turn: each renames
// the field in the tree and replaces its row.
void BM_RenameKeystroke(benchmark::State& state) {
  Alternate(
      state,
      [](FieldStep& step) {
        return step.Act(tk::UserAction::Kind::kType, "txtFieldName", 0, "x");
      },
      [](FieldStep& step) {
        return step.Act(tk::UserAction::Kind::kBackspace, "txtFieldName");
      });
}

// Entering the step lists every field again.
void BM_LoadFieldList(benchmark::State& state) {
  FieldStep step;
  for (auto _ : state) {
    step.wiz().LoadFieldList();
    Check(state, step, true);
  }
}

// Opening a stored definition: the wizard takes the parsed tree, fills every
// step from it and opens on the field step. Parsing the text is the
// pipeline's first stage and is measured there.
void BM_OpenStoredDefinition(benchmark::State& state) {
  FieldStep step;
  for (auto _ : state) {
    step.wiz().SetImpl(step.impl());
    Check(state, step, true);
  }
}

BENCHMARK(BM_TickField)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MoveField)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RenameKeystroke)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LoadFieldList)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_OpenStoredDefinition)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace formwiz::bench
