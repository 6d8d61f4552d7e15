// Small text rules shared by the handler's files: what counts as a control
// character, and cutting UTF-8 without splitting a character. Inline, so the
// library's file list stays as it is.
#pragma once

#include <glib.h>

#include <string>
#include <string_view>

namespace formwiz::delivery::text {

// C0 controls and DEL: the bytes that must never reach a header.
inline bool IsAsciiControl(unsigned char c) { return c < 0x20 || c == 0x7f; }

inline bool HasAsciiControl(std::string_view s) {
  for (unsigned char c : s) {
    if (IsAsciiControl(c)) return true;
  }
  return false;
}

// `s` with every invalid UTF-8 sequence replaced by U+FFFD.
inline std::string ValidUtf8(std::string_view s) {
  if (g_utf8_validate_len(s.data(), s.size(), nullptr)) return std::string(s);
  gchar* valid = g_utf8_make_valid(s.data(), static_cast<gssize>(s.size()));
  std::string out(valid);
  g_free(valid);
  return out;
}

// The longest prefix of valid UTF-8 `s` of at most `max_bytes` bytes that
// ends on a character boundary.
inline std::string CutUtf8(std::string_view s, size_t max_bytes) {
  if (s.size() <= max_bytes) return std::string(s);
  size_t end = max_bytes;
  while (end > 0 && (static_cast<unsigned char>(s[end]) & 0xC0) == 0x80) --end;
  return std::string(s.substr(0, end));
}

// `s` made valid UTF-8 with its C0 controls and DEL removed.
inline std::string StripControls(std::string_view s) {
  std::string out;
  for (unsigned char c : ValidUtf8(s)) {
    if (!IsAsciiControl(c)) out.push_back(static_cast<char>(c));
  }
  return out;
}

}  // namespace formwiz::delivery::text
