// Fuzzes the page-file reader: any bytes are either refused with a reason or
// read into a page that writes back to the very same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "host/page.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  formwiz::host::Page page;
  std::string error;
  if (!formwiz::host::ReadPageFile(text, page, error)) {
    if (error.empty()) std::abort();  // a refusal always says why
    return 0;
  }
  if (formwiz::host::WritePageFile(page) != text) std::abort();
  return 0;
}
