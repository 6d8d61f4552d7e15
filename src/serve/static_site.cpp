#include "serve/static_site.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <memory>
#include <system_error>

#include "delivery/answer_page.h"

namespace formwiz::serve {
namespace {

namespace fs = std::filesystem;

std::optional<std::string> RealPath(const std::string& path) {
  std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr),
                                              &free);
  if (!real) return std::nullopt;
  return std::string(real.get());
}

bool IsRegularFile(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool IsDirectory(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// True when `path` is `root` itself or lies below it.
bool Inside(const std::string& path, const std::string& root) {
  if (root == "/") return true;
  return path == root ||
         (path.size() > root.size() &&
          path.compare(0, root.size(), root) == 0 && path[root.size()] == '/');
}

// The segments of a URL path below "/", or nothing when one of them may not
// be served (see Resolve). Empty segments ("//", a trailing "/") are dropped.
std::optional<std::vector<std::string_view>> Segments(std::string_view url) {
  if (url.empty() || url.front() != '/') return std::nullopt;
  if (url.find('\0') != std::string_view::npos ||
      url.find('\\') != std::string_view::npos) {
    return std::nullopt;
  }
  std::vector<std::string_view> segments;
  size_t start = 1;
  while (start <= url.size()) {
    const size_t end = std::min(url.find('/', start), url.size());
    const std::string_view segment = url.substr(start, end - start);
    if (!segment.empty()) {
      if (segment.front() == '.') return std::nullopt;
      segments.push_back(segment);
    }
    start = end + 1;
  }
  return segments;
}

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() &&
         text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

}  // namespace

bool StaticSite::Add(const std::string& path, std::string& error) {
  const auto real = RealPath(path);
  if (!real) {
    error = "no such file or folder";
    return false;
  }
  if (IsRegularFile(*real)) {
    files_.push_back({"/" + fs::path(path).filename().string(), *real});
    return true;
  }
  if (IsDirectory(*real)) {
    folders_.push_back({"", *real});
    return true;
  }
  error = "neither a regular file nor a folder";
  return false;
}

std::optional<std::string> StaticSite::Resolve(std::string_view url) const {
  const auto segments = Segments(url);
  if (!segments) return std::nullopt;
  if (segments->size() == 1) {
    for (const Mount& file : files_) {
      if (file.url.substr(1) == (*segments)[0]) {
        // The file named on the command line may itself be a link; it is
        // served because the person named it, not because a URL led to it.
        if (IsRegularFile(file.real)) return file.real;
      }
    }
  }
  std::string relative;
  for (std::string_view segment : *segments) {
    relative += '/';
    relative += segment;
  }
  for (const Mount& folder : folders_) {
    auto real = RealPath(folder.real + relative);
    if (!real || !Inside(*real, folder.real)) continue;
    if (IsDirectory(*real)) {
      real = RealPath(*real + "/index.html");
      if (!real || !Inside(*real, folder.real)) continue;
    }
    if (IsRegularFile(*real)) return real;
  }
  return std::nullopt;
}

std::vector<ServedFile> StaticSite::Files(size_t max_files,
                                          int max_depth) const {
  std::vector<ServedFile> out;
  for (const Mount& file : files_) {
    if (out.size() >= max_files) break;
    if (IsRegularFile(file.real)) out.push_back({file.url, file.real});
  }
  for (const Mount& folder : folders_) {
    std::error_code ec;
    // Links to folders are not followed: a link that stays inside is
    // reached by its real path anyway, and one that leads out is not served.
    fs::recursive_directory_iterator it(
        folder.real, fs::directory_options::skip_permission_denied, ec);
    for (; !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
      if (out.size() >= max_files) break;
      const std::string name = it->path().filename().string();
      if (!name.empty() && name.front() == '.') {
        if (it->is_directory(ec)) it.disable_recursion_pending();
        continue;
      }
      if (it.depth() >= max_depth) it.disable_recursion_pending();
      const std::string url =
          "/" + fs::relative(it->path(), folder.real, ec).generic_string();
      if (ec) break;
      const auto real = Resolve(url);
      // A name that resolves to another mount's file (an earlier folder, a
      // command-line file of the same name) is that file, not this one.
      if (real && *real == it->path().string()) out.push_back({url, *real});
    }
  }
  std::sort(
      out.begin(), out.end(),
      [](const ServedFile& a, const ServedFile& b) { return a.url < b.url; });
  out.erase(std::unique(out.begin(), out.end(),
                        [](const ServedFile& a, const ServedFile& b) {
                          return a.url == b.url;
                        }),
            out.end());
  return out;
}

std::string StaticSite::IndexPage(const std::vector<ServedFile>& files) const {
  std::string links;
  for (const ServedFile& file : files) {
    const std::string lower = Lower(file.url);
    if (!EndsWith(lower, ".html") && !EndsWith(lower, ".htm")) continue;
    links += "<li><a href=\"" + delivery::HtmlText(file.url) + "\">" +
             delivery::HtmlText(file.url) + "</a></li>\n";
  }
  if (links.empty()) links = "<li>No pages are served.</li>\n";
  return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta "
         "charset=\"utf-8\">\n<title>Pages</title>\n</head>\n<body>\n"
         "<h1>Pages</h1>\n<ul>\n" +
         links + "</ul>\n</body>\n</html>\n";
}

std::string_view ContentTypeFor(std::string_view path) {
  const size_t dot = path.rfind('.');
  const size_t slash = path.rfind('/');
  if (dot == std::string_view::npos ||
      (slash != std::string_view::npos && dot < slash)) {
    return "application/octet-stream";
  }
  const std::string ext = Lower(path.substr(dot + 1));
  if (ext == "html" || ext == "htm") return "text/html; charset=utf-8";
  if (ext == "css") return "text/css; charset=utf-8";
  if (ext == "js" || ext == "mjs") return "text/javascript; charset=utf-8";
  if (ext == "png") return "image/png";
  if (ext == "jpg" || ext == "jpeg") return "image/jpeg";
  if (ext == "svg") return "image/svg+xml";
  if (ext == "txt") return "text/plain; charset=utf-8";
  if (ext == "json") return "application/json";
  return "application/octet-stream";
}

}  // namespace formwiz::serve
