// Stored definitions parsed before anyone opens them.
//
// Opening a stored definition parses it first, and expat alone takes longer
// than a frame on a definition of ten thousand fields. An editor knows the
// definitions in its page long before the person opens one, so it parses
// them ahead on a worker thread as the page opens and changes; LoadXml of
// exactly such a text then takes the tree that is ready instead of parsing
// it again. The result is the same either way: the same parser built it from
// the same text.
//
// A held tree is taken once, since the dialogs edit the tree they are given,
// so an editor parses a definition ahead again after each open. Only texts
// that parse are held; anything else is parsed and refused by LoadXml as
// always. What is held is bounded by kParseAheadBytes of text, the oldest
// dropped first.
#pragma once

#include <cstddef>
#include <string_view>

#include "formdoc/kelxml.h"

namespace formwiz {

inline constexpr size_t kParseAheadBytes = size_t{8} << 20;

// Parses `xml` on the calling thread, which may be any thread, and holds the
// tree for the next LoadXml of the same text. A text already held is not
// parsed again. False when the text does not parse, or is larger than
// everything that may be held.
bool ParseAhead(std::string_view xml);

// Whether a tree of exactly this text is held.
bool IsParsedAhead(std::string_view xml);

// Lets go of every held tree.
void DropParsedAhead();

namespace detail {

// The held tree of exactly this text, taken out; null when none is held.
NodeRef TakeParsedAhead(std::string_view xml);

}  // namespace detail

}  // namespace formwiz
