#include "toolkit/ui.h"

#include <iostream>

#include "toolkit/form.h"

namespace formwiz {
namespace {

thread_local Ui* current_ui = nullptr;

Ui& FallbackUi() {
  thread_local StderrUi ui;
  return ui;
}

}  // namespace

void Ui::RunModal(tk::Form& form, tk::Form*) { form.CloseFromFrame(); }

Ui& CurrentUi() { return current_ui ? *current_ui : FallbackUi(); }

ScopedUi::ScopedUi(Ui& ui) : previous_(current_ui) { current_ui = &ui; }

ScopedUi::~ScopedUi() { current_ui = previous_; }

void StderrUi::MsgBox(std::string_view text, std::string_view title) {
  ++count_;
  std::cerr << title << ": " << text << '\n';
}

}  // namespace formwiz
