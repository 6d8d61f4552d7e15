// The body a form posts (application/x-www-form-urlencoded), decoded by
// GLib's URI parameter reader into name/value pairs in posted order, within
// the limits, every name and value valid UTF-8.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "delivery/limits.h"
#include "delivery/store/record.h"

namespace formwiz::delivery {

struct Decoded {
  bool ok = false;
  int status = 400;   // when not ok: 400 malformed, 413 over a limit
  std::string error;  // when not ok: one line for the visitor
  std::vector<store::Field> pairs;
};

Decoded DecodeUrlEncoded(std::string_view body, const Limits& limits);

// True when `content_type` is application/x-www-form-urlencoded, with no
// charset parameter or charset UTF-8 (any case).
bool IsUrlEncoded(std::string_view content_type);

}  // namespace formwiz::delivery
