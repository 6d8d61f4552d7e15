#include "host/base64.h"

#include <cstdint>

namespace formwiz::host {
namespace {

constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int Base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

}  // namespace

std::string EncodeBase64(std::string_view bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    const uint32_t n = static_cast<uint8_t>(bytes[i]) << 16 |
                       static_cast<uint8_t>(bytes[i + 1]) << 8 |
                       static_cast<uint8_t>(bytes[i + 2]);
    for (int shift : {18, 12, 6, 0}) out += kBase64Alphabet[(n >> shift) & 63];
  }
  if (i < bytes.size()) {
    const bool two = i + 1 < bytes.size();
    const uint32_t n = static_cast<uint8_t>(bytes[i]) << 16 |
                       (two ? static_cast<uint8_t>(bytes[i + 1]) << 8 : 0);
    out += kBase64Alphabet[(n >> 18) & 63];
    out += kBase64Alphabet[(n >> 12) & 63];
    out += two ? kBase64Alphabet[(n >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

bool DecodeBase64(std::string_view text, std::string& out) {
  if (text.size() % 4 != 0) return false;
  out.clear();
  out.reserve(text.size() / 4 * 3);
  for (size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    const int pad = last ? (text[i + 3] == '=') + (text[i + 2] == '=') : 0;
    if (pad == 1 && text[i + 2] == '=') return false;  // "x==" needs both
    uint32_t n = 0;
    for (int k = 0; k < 4; ++k) {
      const int v = k >= 4 - pad ? 0 : Base64Value(text[i + k]);
      if (v < 0) return false;
      n = n << 6 | static_cast<uint32_t>(v);
    }
    if ((pad == 1 && (n & 0xFF)) || (pad == 2 && (n & 0xFFFF))) return false;
    out += static_cast<char>(n >> 16);
    if (pad < 2) out += static_cast<char>(n >> 8 & 0xFF);
    if (pad < 1) out += static_cast<char>(n & 0xFF);
  }
  return true;
}

}  // namespace formwiz::host
