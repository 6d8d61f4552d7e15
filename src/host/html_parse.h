// gumbo's HTML5 parse under bounds. The tree builder is fine for pages
// people write, but hostile nesting makes it quadratic (100,000 nested
// <div>s take most of a minute) and its memory grows to some fifty times
// the input; it has no way to stop of its own. Here all of its memory comes
// from one arena that counts it and the thread's CPU time, and a parse past
// either bound is abandoned, its memory freed at once.
#pragma once

#include <gumbo.h>

#include <memory>
#include <string>
#include <string_view>

namespace formwiz::host {

class HtmlParse {
 public:
  // Parses `text`, which must outlive this object (the tree points into
  // it): a whole document, or with `context` a fragment as the content of
  // that element (the nodes are then the children of the root).
  explicit HtmlParse(std::string_view text, GumboTag context = GUMBO_TAG_LAST);
  ~HtmlParse();
  HtmlParse(const HtmlParse&) = delete;
  HtmlParse& operator=(const HtmlParse&) = delete;

  // The tree, or null when the parse was stopped; `error` then says why in
  // one line.
  const GumboOutput* output() const { return output_; }
  const std::string& error() const { return error_; }

  struct Arena;

 private:
  std::unique_ptr<Arena> arena_;
  GumboOptions options_;
  GumboOutput* output_ = nullptr;
  std::string error_;
};

}  // namespace formwiz::host
