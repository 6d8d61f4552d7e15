// Base64 (RFC 4648, standard alphabet, padded), shared by the page file
// and the script reader.
#pragma once

#include <string>
#include <string_view>

namespace formwiz::host {

std::string EncodeBase64(std::string_view bytes);

// Strict: padded, no white space, unused bits zero, so that each byte string
// has exactly one spelling. False, with `out` unspecified, for anything else.
bool DecodeBase64(std::string_view text, std::string& out);

}  // namespace formwiz::host
