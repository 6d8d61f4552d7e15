// SHA-256 (FIPS 180-4), for the digest of a picture in a transcript. Small
// enough to carry here rather than add a dependency for one use.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace formwiz::script {

// The digest of `bytes` as 64 lower-case hex digits.
std::string Sha256Hex(const std::vector<uint8_t>& bytes);

}  // namespace formwiz::script
