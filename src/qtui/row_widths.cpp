#include "qtui/row_widths.h"

#include <QString>
#include <algorithm>
#include <utility>

namespace formwiz::qtui {

RowWidths::RowWidths(const QFont& font) : metrics_(font) { advances_.fill(-1); }

void RowWidths::SetFont(const QFont& font) {
  metrics_ = QFontMetricsF(font);
  advances_.fill(-1);
  widths_.clear();
  stale_ = true;
}

double RowWidths::Measure(std::string_view text) {
  double sum = 0;
  for (size_t i = 0; i < text.size();) {
    // One- and two-byte UTF-8 sequences hold every code point below
    // kSimpleEnd; anything longer is beyond it.
    const auto lead = static_cast<unsigned char>(text[i]);
    char32_t cp = lead;
    if (lead >= 0x80) {
      const auto next =
          i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
      const bool pair = (lead & 0xE0) == 0xC0 && (next & 0xC0) == 0x80;
      cp = pair ? (char32_t{lead} & 0x1F) << 6 | (next & 0x3F) : kSimpleEnd;
    }
    const bool combining = cp >= 0x300 && cp < 0x370;
    if (cp >= kSimpleEnd || combining) {
      return metrics_.horizontalAdvance(
          QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())));
    }
    double& advance = advances_[cp];
    if (advance < 0) {
      advance = metrics_.horizontalAdvance(QChar(static_cast<char16_t>(cp)));
    }
    sum += advance;
    i += lead < 0x80 ? 1 : 2;
  }
  return sum;
}

void RowWidths::Reset(const std::vector<tk::ListRow>& rows) {
  widths_.clear();
  widths_.reserve(rows.size());
  for (const tk::ListRow& row : rows) widths_.push_back(Measure(row.text));
  stale_ = true;
}

void RowWidths::Insert(int row, std::string_view text) {
  widths_.insert(widths_.begin() + row, Measure(text));
  stale_ = true;
}

void RowWidths::Remove(int row) {
  widths_.erase(widths_.begin() + row);
  stale_ = true;
}

int RowWidths::WidestRow() const {
  if (std::exchange(stale_, false)) {
    widest_ = widths_.empty()
                  ? -1
                  : static_cast<int>(
                        std::max_element(widths_.begin(), widths_.end()) -
                        widths_.begin());
  }
  return widest_;
}

double RowWidths::Widest() const {
  const int row = WidestRow();
  return row < 0 ? 0 : widths_[static_cast<size_t>(row)];
}

}  // namespace formwiz::qtui
