#include "host/input_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <vector>

namespace formwiz::host {
namespace {

namespace fs = std::filesystem;

// At most `limit` + 1 bytes of `in`, enough to tell a text that is too
// large.
std::string ReadBounded(std::istream& in, size_t limit) {
  std::string text;
  std::vector<char> buffer(size_t{1} << 16);
  while (text.size() <= limit) {
    in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    if (in.gcount() <= 0) break;
    text.append(buffer.data(), static_cast<size_t>(in.gcount()));
  }
  return text;
}

std::string TooLarge(size_t limit) {
  return "too large (at most " + std::to_string(limit) + " bytes)";
}

}  // namespace

std::optional<std::string> ReadInputFile(const std::string& path, size_t limit,
                                         std::string& error) {
  std::string text;
  if (path == "-") {
    text = ReadBounded(std::cin, limit);
  } else {
    std::error_code ec;
    if (fs::is_directory(path, ec)) {
      error = "cannot read: is a directory";
      return std::nullopt;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
      error = std::string("cannot read: ") + std::strerror(errno);
      return std::nullopt;
    }
    const auto size = fs::file_size(path, ec);
    if (!ec && size > limit) {
      error = TooLarge(limit);
      return std::nullopt;
    }
    text = ReadBounded(in, limit);
    if (in.bad()) {
      error = "cannot read: read error";
      return std::nullopt;
    }
  }
  if (text.size() > limit) {
    error = TooLarge(limit);
    return std::nullopt;
  }
  return text;
}

}  // namespace formwiz::host
