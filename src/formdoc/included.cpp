// The `included` string of a field node, one character per form choice, and
// the child texts of a form choice.
#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "component/failure.h"
#include "formdoc/form_doc.h"

namespace formwiz {
namespace {

// Positions in `included` count characters, and a definition may hold any
// UTF-8 text there, so they are counted in code points: a byte starts a
// character unless it is a continuation byte. A stray continuation byte thus
// stays with the character in front of it instead of counting on its own.
bool StartsCharacter(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

// The byte offset at which character `position` (from 1) begins; the size of
// `text` when the text ends before it.
size_t ByteOffsetOf(std::string_view text, int32_t position) {
  int32_t seen = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (StartsCharacter(text[i]) && ++seen == position) return i;
  }
  return text.size();
}

// The characters of `text` from `position` (from 1, at least 1) on, at most
// `count` of them; empty when the text ends before `position`.
std::string_view Mid(std::string_view text, int32_t position, int32_t count) {
  const size_t begin = ByteOffsetOf(text, position);
  const std::string_view rest = text.substr(begin);
  return rest.substr(0, ByteOffsetOf(rest, count + 1));
}

std::string_view Left(std::string_view text, int32_t count) {
  return count < 1 ? std::string_view() : Mid(text, 1, count);
}

int32_t CharacterCount(std::string_view text) {
  int32_t count = 0;
  for (char byte : text) count += StartsCharacter(byte) ? 1 : 0;
  return count;
}

}  // namespace

bool IncludedCharIs(const KelXmlNode& field, int32_t form_index,
                    std::string_view wanted) {
  // Each step is passed over when it fails and the comparison is made with
  // what is at hand, so a null node simply compares the empty string.
  std::string_view value;
  (void)Catch([&] { value = field.AttributeView("included"); });
  // An index below 1 names no position: the character cannot be taken and
  // the whole value is compared, so only an `included` of exactly "y" counts.
  if (form_index >= 1) value = Mid(value, form_index, 1);
  // Compared in place: the field list asks this of every row, and for one
  // character a call to memcmp costs more than the comparison.
  if (value.size() != wanted.size()) return false;
  for (size_t i = 0; i < value.size(); ++i) {
    if (value[i] != wanted[i]) return false;
  }
  return true;
}

void SetFieldIncluded(const KelXmlNode& field, int32_t form_index,
                      bool included) {
  // An index below 1 puts the new character in front of the whole string, as
  // the wizard does for a stored form that has lost its form choice (index
  // 0). A negative index is taken the same way rather than failing in the
  // middle of a tick.
  const int32_t index = std::max(form_index, int32_t{0});
  const std::string old_value = field.GetAttribute("included");
  std::string new_value(Left(old_value, index - 1));
  new_value += included ? "y" : "n";
  if (CharacterCount(new_value) < CharacterCount(old_value)) {
    new_value += Mid(old_value, index + 1, CharacterCount(old_value));
  }
  field.SetAttribute("included", new_value);
}

std::string GetInfoText(const KelXmlNode& forminfo, std::string_view tag) {
  const KelXmlNode first = forminfo.GetElementsByTagName(tag).Item(0);
  return first ? first.Text() : std::string();
}

}  // namespace formwiz
