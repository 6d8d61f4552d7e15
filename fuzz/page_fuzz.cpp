// libFuzzer target: the page-file reader and writer, CheckPageFile.
#include <cstddef>
#include <cstdint>

#include "checks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return formwiz::fuzz::RunCheck(formwiz::fuzz::CheckPageFile, data, size);
}
