#include "component/utils.h"

#include <string>

#include "component/strings.h"
#include "toolkit/ui.h"

namespace formwiz {
namespace {

// The three tests of a hidden field, in their order: tag, type, name.
bool IsHiddenFieldNamed(const KelXmlNode& node, std::string_view name) {
  return node.TagName() == "input" && node.GetAttribute("type") == "hidden" &&
         node.GetAttribute("name") == name;
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

}  // namespace formwiz
