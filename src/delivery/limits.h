// Bounds on everything a visitor controls. Each has a default for a small
// site; the configuration file's [limits] table changes them.
#pragma once

#include <cstddef>

namespace formwiz::delivery {

struct Limits {
  size_t max_body = 64 * 1024;          // bytes of a posted body
  size_t max_fields = 200;              // name=value pairs in one post
  size_t max_name_length = 256;         // bytes of one field name
  size_t max_value_length = 32 * 1024;  // bytes of one field value
  int rate_per_minute = 20;     // accepted posts per client address and minute
  int rate_burst = 10;          // posts a client may send at once
  int timeout_seconds = 15;     // a request's whole time (slow clients)
  int connections_per_ip = 16;  // open connections from one address
};

}  // namespace formwiz::delivery
