#include "qtui/row_widths.h"

#include <QString>
#include <algorithm>
#include <utility>

namespace formwiz::qtui {

RowWidths::RowWidths(const QFont& font) : metrics_(font) { ascii_.fill(-1); }

void RowWidths::SetFont(const QFont& font) {
  metrics_ = QFontMetricsF(font);
  ascii_.fill(-1);
  widths_.clear();
  stale_ = true;
}

double RowWidths::Measure(std::string_view text) {
  double sum = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= ascii_.size()) {
      return metrics_.horizontalAdvance(
          QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())));
    }
    double& advance = ascii_[byte];
    if (advance < 0) advance = metrics_.horizontalAdvance(QChar(byte));
    sum += advance;
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
