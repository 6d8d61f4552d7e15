// libFuzzer target: the reader and runner of `formwiz script`, CheckScript.
#include <cstddef>
#include <cstdint>

#include "checks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return formwiz::fuzz::RunCheck(formwiz::fuzz::CheckScript, data, size);
}
