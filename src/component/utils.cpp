#include "component/utils.h"

#include <locale.h>
#include <stdlib.h>

#include <cmath>
#include <limits>
#include <string>

#include "component/strings.h"
#include "toolkit/ui.h"

namespace formwiz {

using std::string_view_literals::operator""sv;
namespace {

// The three tests of a hidden field, in their order: tag, type, name.
bool IsHiddenFieldNamed(const KelXmlNode& node, std::string_view name) {
  return node.TagName() == "input"sv &&
         node.GetAttribute("type") == "hidden"sv &&
         node.GetAttribute("name") == name;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The part of `text` that the runtime reads as a number: blanks anywhere are
// passed over, then come an optional sign, digits with an optional decimal
// point, and an exponent (E or D) when digits follow it; reading stops at the
// first character that does not fit. Empty when no digit comes.
std::string NumberPrefix(std::string_view text) {
  std::string s;
  for (char c : text) {
    if (c != ' ' && c != '\t' && c != '\n' && c != '\r') s += c;
  }
  size_t i = 0;
  auto skip_digits = [&] {
    const size_t start = i;
    while (i < s.size() && IsDigit(s[i])) ++i;
    return i - start;
  };
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  size_t mantissa_digits = skip_digits();
  if (i < s.size() && s[i] == '.') {
    ++i;
    mantissa_digits += skip_digits();
  }
  if (mantissa_digits == 0) return {};
  std::string prefix = s.substr(0, i);
  if (i < s.size() &&
      std::string_view("eEdD").find(s[i]) != std::string_view::npos) {
    const size_t exponent = ++i;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
    if (skip_digits() > 0) {
      prefix += 'e';
      prefix.append(s, exponent, i - exponent);
    }
  }
  return prefix;
}

// `number` as a double, with "." as the decimal point whatever locale the
// process runs in: a host that sets the user's locale must not turn "1.5"
// into 1.
double ParseDecimal(const std::string& number) {
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(number.c_str(), nullptr, c_locale);
}

}  // namespace

void ReportInternalError(int32_t code, int32_t number,
                         std::string_view description) {
  std::string text(LoadResString(kStrInternalError));
  text += std::to_string(code);
  if (number != 0 || !description.empty()) {
    text += "\r\n";
    text += std::to_string(number);
    text += ": ";
    text += description;
  }
  CurrentUi().MsgBox(text, LoadResString(kStrErrorTitle));
}

std::string GetHiddenField(const KelXmlNode& elem, std::string_view name) {
  std::string result;
  // A failure reads as "no such field": the caller cannot tell the two apart.
  (void)Catch([&] {
    for (KelXmlNode child = elem.FirstChild(); child && result.empty();
         child = child.NextSibling()) {
      if (IsHiddenFieldNamed(child, name)) result = child.GetAttribute("value");
    }
  });
  return result;
}

void SetHiddenField(const KelXmlElement& elem, std::string_view name,
                    std::string_view value, bool bNoEndTag) {
  Trapped(code::kHiddenField, [&] {
    for (KelXmlNode child = elem.FirstChild(); child;
         child = child.NextSibling()) {
      if (IsHiddenFieldNamed(child, name)) {
        // An existing field keeps its place; its mark, if it needs one, was
        // set by the field-order walk that ran before.
        child.SetAttribute("value", value);
        return;
      }
    }
    KelXmlElement field = elem.AppendNewElement("input");
    field.SetAttribute("type", "hidden");
    field.SetAttribute("name", name);
    field.SetAttribute("value", value);
    // New fields go in front of everything, so they stand in the reverse of
    // their creation.
    elem.RemoveChild(field);
    elem.InsertBefore(field, elem.FirstChild());
    if (bNoEndTag) field.SetNoEndTag(true);
  });
}

int16_t ReadFormIndex(const KelXmlNode& form) {
  const std::string number =
      NumberPrefix(GetHiddenField(form, "qln_FormIndex"));
  // Far too many digits read as infinity, which fails the range test below;
  // far too small a value reads as 0.
  const double value = number.empty() ? 0 : ParseDecimal(number);
  // Rounded half to even, as the runtime rounds into an integer.
  const double rounded = std::nearbyint(value);
  if (!(rounded >= std::numeric_limits<int16_t>::min() &&
        rounded <= std::numeric_limits<int16_t>::max())) {
    Raise(err::kOverflow);
  }
  return static_cast<int16_t>(rounded);
}

}  // namespace formwiz
