// libFuzzer target: LoadXml and the serialiser, CheckXmlRoundTrip.
#include <cstddef>
#include <cstdint>

#include "checks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return formwiz::fuzz::RunCheck(formwiz::fuzz::CheckXmlRoundTrip, data, size);
}
