// Pages formwiz did not write. (Being built: for now only page files.)
#include "host/page.h"

namespace formwiz::host {

bool ReadPage(std::string_view text, Page& page, std::string& error) {
  return ReadPageFile(text, page, error);
}

std::string WritePage(const Page& page) { return WritePageFile(page); }

}  // namespace formwiz::host
