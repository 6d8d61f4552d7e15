// libFuzzer target: a commit's steps on any definition, CheckAssembly.
#include <cstddef>
#include <cstdint>

#include "checks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return formwiz::fuzz::RunCheck(formwiz::fuzz::CheckAssembly, data, size);
}
