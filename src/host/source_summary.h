// A one-line description of a block of someone else's page, for a list of
// blocks (the editor's outline, `formwiz page list`): the element it is and
// the first words a visitor reads in it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace formwiz::host {

struct SourceSummary {
  // The element's name in lower case ("div", "my-widget"); "#comment" for a
  // block of nothing but comments; empty for text outside any element.
  std::string tag;
  // Its first words, white space folded, cut at a word with "…" when long.
  // Empty for scripts and styles, whose text nobody reads on the page.
  std::string words;
};

// How much of a block is parsed: its start is enough for a name and a few
// words, and a block of megabytes costs no more than one of a line.
inline constexpr size_t kSummaryInputLimit = 4096;
// The words' length in bytes before "…".
inline constexpr size_t kSummaryWords = 60;

// The block's bytes are parsed as what they are, part of a body.
SourceSummary SummarizeSource(std::string_view html);

}  // namespace formwiz::host
