// libFuzzer target: a posted body through the handler's pure steps, with
// the checks of delivery_checks.h.
#include <cstddef>
#include <cstdint>

#include "checks.h"
#include "delivery_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return formwiz::fuzz::RunCheck(formwiz::fuzz::CheckPost, data, size);
}
