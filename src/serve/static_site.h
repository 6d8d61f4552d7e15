// The files `formwiz serve` shows: the page files and site folders named on
// its command line, mapped to URL paths, and resolved so that no request
// reaches a file outside them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace formwiz::serve {

// One served file: its URL path and the real path of the file.
struct ServedFile {
  std::string url;
  std::string path;
};

class StaticSite {
 public:
  // Adds a PATH of the command line: a file is served at "/" plus its name,
  // a folder's files at their paths below "/". False, with `error` in a few
  // words, for a path that is neither.
  bool Add(const std::string& path, std::string& error);

  // The real path of the regular file that `url` (a decoded URL path, as the
  // HTTP library gives it) names, or nothing. Refused: a path not starting
  // with "/", any "..", "." or other segment beginning with a dot (a site
  // folder's .git or .htaccess is nobody's business), a NUL or backslash,
  // and anything whose real path leaves the folder it was found under, so a
  // symbolic link cannot lead out of it. A folder's URL gives its
  // index.html.
  std::optional<std::string> Resolve(std::string_view url) const;

  // Every file served, in URL order, at most `max_files` of them (a walk of
  // a large tree stops there); folders are walked at most `max_depth` deep.
  std::vector<ServedFile> Files(size_t max_files = 10000,
                                int max_depth = 16) const;

  // The page shown at "/" when no folder has an index.html: a list of links
  // to the .html files served, every name escaped.
  std::string IndexPage(const std::vector<ServedFile>& files) const;

  bool empty() const { return files_.empty() && folders_.empty(); }

 private:
  struct Mount {
    std::string url;   // files: "/name"; folders: unused
    std::string real;  // the real path
  };
  std::vector<Mount> files_;
  std::vector<Mount> folders_;
};

// The Content-Type of a file by its extension (html, css, js, png, jpg, svg,
// txt, json), application/octet-stream for the rest.
std::string_view ContentTypeFor(std::string_view path);

}  // namespace formwiz::serve
