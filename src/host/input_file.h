// Reading what a person names on the command line or in a script: a file,
// or standard input for "-".
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace formwiz::host {

// Texts the command line and scripts take are at most this long.
inline constexpr size_t kMaxInputSize = size_t{64} << 20;

// The whole of `path` ("-": standard input), at most `limit` bytes. A bigger
// file is refused by its size before it is read; a device, a pipe or standard
// input, which have no size, are read in pieces and refused one byte past the
// limit, so that /dev/zero ends too. On refusal, `error` says why in a few
// words ("cannot read: is a directory", "too large (at most N bytes)").
std::optional<std::string> ReadInputFile(const std::string& path, size_t limit,
                                         std::string& error);

}  // namespace formwiz::host
