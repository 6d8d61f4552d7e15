// Comma-separated records as RFC 4180 writes them.
#pragma once

#include <string>
#include <vector>

namespace formwiz::delivery {

// One record: the cells joined by commas, a cell quoted (with its quotes
// doubled) when it holds a comma, a quote, CR or LF; ends with CR LF.
std::string CsvRecord(const std::vector<std::string>& cells);

}  // namespace formwiz::delivery
