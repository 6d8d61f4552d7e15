// A few words that tell a person which block of someone else's page they
// are looking at, in a list of blocks: its first element's tag and the
// start of its text.
#pragma once

#include <string>
#include <string_view>

namespace formwiz::host {

struct SourceSummary {
  // The first element's tag name ("section"), or empty for a block that
  // starts with text, or holds only comments.
  std::string tag;
  // The start of the text a visitor reads in the block, white space
  // collapsed, at most about kSummaryWords bytes (never cut inside a
  // character); the text of scripts and styles is not read.
  std::string words;
};

inline constexpr size_t kSummaryWords = 60;

// The block's bytes are parsed as what they are, part of a body.
SourceSummary SummarizeSource(std::string_view source);

}  // namespace formwiz::host
