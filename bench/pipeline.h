// What the benchmarks share: the commit pipeline as one call, and the sizes.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "toolkit/ui.h"

namespace formwiz::bench {

inline constexpr int kFieldCounts[] = {10, 100, 1000, 10000, 100000};
// The form choice assembled: the first, which keeps most fields.
inline constexpr int16_t kFormIndex = 1;

// Message boxes are not expected; should one come, it is counted instead of
// waiting for a person, and the benchmark says so. A modal show runs
// `while_shown`, when set, as the person's part.
class CountingUi : public Ui {
 public:
  void MsgBox(std::string_view, std::string_view) override { ++boxes; }
  void RunModal(tk::Form& form, tk::Form* owner) override {
    if (while_shown) {
      while_shown();
    } else {
      Ui::RunModal(form, owner);
    }
  }
  int boxes = 0;
  std::function<void()> while_shown;
};
// Makes a CountingUi this thread's Ui for its lifetime.
struct QuietUi {
  CountingUi ui;
  ScopedUi scope{ui};
};

// Parses a stored definition, assembles its form, collects the field order
// and writes the HTML: what a commit does with the definition. Empty when the
// text does not parse or holds no form.
std::string RunPipeline(const std::string& definition);

}  // namespace formwiz::bench
