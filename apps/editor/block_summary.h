// A one-line description of a block of someone else's page, for its row in
// the outline: the element it is and the first words a visitor reads in it.
// Qt-free, so that it can be checked without a screen.
#pragma once

#include <string>
#include <string_view>

namespace formwiz::editor {

struct BlockSummary {
  // The element's name in lower case ("div", "my-widget"); "#comment" for a
  // comment; empty for text that stands outside any element.
  std::string tag;
  // Its first words, white space folded, cut at a word with "…" when long.
  // Empty for scripts and styles, whose text nobody reads on the page.
  std::string words;
};

// How much of a block is parsed: its start is enough for a name and a few
// words, and a block of megabytes costs no more than one of a line.
inline constexpr size_t kSummaryInputLimit = 4096;
// The words' length in bytes before "…".
inline constexpr size_t kSummaryWordsLimit = 60;

BlockSummary SummarizeBlock(std::string_view html);

}  // namespace formwiz::editor
