// The width of each row's text of a long list, kept up to date one row at a
// time, so that a view can be as wide as its widest row without laying out
// every row's text again after each change.
#pragma once

#include <QFont>
#include <QFontMetricsF>
#include <array>
#include <string_view>
#include <vector>

#include "toolkit/control.h"

namespace formwiz::qtui {

class RowWidths {
 public:
  explicit RowWidths(const QFont& font = QFont());

  // Measures in `font` from now on; the rows are to be given again.
  void SetFont(const QFont& font);
  void Reset(const std::vector<tk::ListRow>& rows);
  void Insert(int row, std::string_view text);
  void Remove(int row);

  // The row whose text is widest, -1 when there is none, and its width.
  int WidestRow() const;
  double Widest() const;

 private:
  // A text's width. Text in the alphabetic scripts written left to right
  // up to U+058F (Latin, Greek, Cyrillic, Armenian), which is nearly every
  // field name, is the sum of its characters' advances, each measured once:
  // kerning only narrows it. Any other text (combining marks, scripts that
  // join or reorder letters) is laid out whole.
  double Measure(std::string_view text);

  // Characters measured one by one: the first code points, up to Hebrew.
  static constexpr char32_t kSimpleEnd = 0x590;

  QFontMetricsF metrics_;
  // Advances of those characters; negative until measured.
  std::array<double, kSimpleEnd> advances_{};
  std::vector<double> widths_;
  // Found again when asked for after a change: one pass over the widths.
  mutable int widest_ = -1;
  mutable bool stale_ = false;
};

}  // namespace formwiz::qtui
