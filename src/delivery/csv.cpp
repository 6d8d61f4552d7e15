#include "delivery/csv.h"

namespace formwiz::delivery {

std::string CsvRecord(const std::vector<std::string>& cells) {
  std::string out;
  for (size_t i = 0; i < cells.size(); ++i) {
    if (i > 0) out += ',';
    const std::string& cell = cells[i];
    if (cell.find_first_of(",\"\r\n") == std::string::npos) {
      out += cell;
      continue;
    }
    out += '"';
    for (char c : cell) {
      if (c == '"') out += '"';
      out += c;
    }
    out += '"';
  }
  out += "\r\n";
  return out;
}

}  // namespace formwiz::delivery
