// Operations on the form definition: reading and writing a field's
// `included` string, the child texts of a form choice, assembly of the HTML
// form, placeholder substitution, and the field order with end-tag marks.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "formdoc/kelxml.h"

namespace formwiz {

// --- included ------------------------------------------------------------

// Whether the character of `included` at `form_index` (from 1) is `wanted`.
// A position behind the end gives the empty string; an index below 1 compares
// the whole value. Lets no failure out: what fails is passed over.
bool IncludedCharIs(const KelXmlNode& field, int32_t form_index,
                    std::string_view wanted);
// "y" at the index: listed ticked, and assembled.
inline bool IsFieldIncluded(const KelXmlNode& field, int32_t form_index) {
  return IncludedCharIs(field, form_index, "y");
}
// "h" at the index: not listed.
inline bool IsFieldHidden(const KelXmlNode& field, int32_t form_index) {
  return IncludedCharIs(field, form_index, "h");
}
// Rewrites the character at `form_index` as "y" or "n"; a string too short
// grows by one character at its end.
void SetFieldIncluded(const KelXmlNode& field, int32_t form_index,
                      bool included);

// The text of the first `tag` element below a form choice; empty when none.
std::string GetInfoText(const KelXmlNode& forminfo, std::string_view tag);

// --- assembly ------------------------------------------------------------

// The first `form` child of `impl`; null when there is none.
KelXmlElement FirstFormChild(const KelXmlNode& impl);

// Replaces each field node that the walk reaches by its fragment when the
// form choice `form_index` includes it, and deletes it otherwise. False when
// `impl` has no `form` child, or when a failure ended the walk (reported 201).
bool AssembleForm(const KelXmlNode& impl, int16_t form_index);
// One field node: template, removal, substitution, re-insertion. Failures
// are reported as 202 and end this field only.
void ExpandField(const KelXmlNode& impl, const KelXmlNode& node,
                 int16_t form_index);
// Appends copies of the children of the first `template` child of `impl`
// named `templateName` to `node`; nothing when no template matches.
void ApplyTemplate(const KelXmlNode& impl, const KelXmlElement& node,
                   std::string_view templateName);
// Appends deep copies of the children of `source` to `target`, in order.
void CloneChildrenInto(const KelXmlNode& source, const KelXmlNode& target);
// Whether the field is included for `form_index`.
bool IsIncluded(const KelXmlNode& node, int16_t form_index);

// --- substitution --------------------------------------------------------

// Placeholders and values, entries from 1 in the classic way: entry 2k-1 a
// placeholder, entry 2k its value, closed by an empty placeholder entry.
// Stored from index 0 here.
using PairList = std::vector<std::string>;

// Fills the placeholders of `pairs` into every text node and attribute value
// of the subtree. A failure on a node is reported as 203 and ends that node.
void SubstituteInTree(const KelXmlNode& node, const PairList& pairs);
// Applies each pair in order over the whole text.
void ApplySubstitutions(std::string& text, const PairList& pairs);
// Replaces every occurrence of `find` (not empty), left to right, never
// looking into what it has inserted.
void ReplaceAll(std::string& text, std::string_view find,
                std::string_view replacement);

// --- field order ---------------------------------------------------------

// Walks the subtree in document order: marks input, br and img to be written
// without end tag and textarea with one, and appends the names of the data
// fields to `order`, comma-separated. A failure on a node is reported as 106
// and ends that node's walk.
void CollectFieldOrder(const KelXmlNode& node, std::string& order);

}  // namespace formwiz
