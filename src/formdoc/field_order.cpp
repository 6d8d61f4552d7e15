// The walk just before a form is written for the page: it records the names
// of the form's data fields in document order and marks the elements that
// HTML writes differently from XML.
#include <string>
#include <string_view>

#include "component/utils.h"
#include "formdoc/form_doc.h"
#include "formdoc/walk.h"

namespace formwiz {

using std::string_view_literals::operator""sv;
namespace {

// Reserved inputs carry this prefix; only the hidden and submit ones among
// them are the system's own and stay out of the order.
constexpr std::string_view kReservedPrefix = "qln_";

bool IsDataInput(std::string_view name, std::string_view type) {
  if (name.empty()) return false;
  return !name.starts_with(kReservedPrefix) ||
         (type != "hidden"sv && type != "submit"sv);
}

void Record(std::string& order, std::string_view name) {
  // Names go in as they are: a comma inside one is not escaped, and a name
  // that occurs twice is recorded twice.
  if (!order.empty()) order += ',';
  order += name;
}

void MarkAndRecord(const KelXmlElement& element, std::string& order) {
  const std::string tag = element.TagName();
  if (tag == "input"sv) {
    element.SetNoEndTag(true);
    const std::string name = element.GetAttribute("name");
    if (IsDataInput(name, element.GetAttribute("type"))) Record(order, name);
  } else if (tag == "br"sv || tag == "img"sv) {
    element.SetNoEndTag(true);
  } else if (tag == "textarea"sv) {
    // A browser reads an empty `<textarea/>` as an open one that swallows
    // the rest of the page, so it always gets its end tag.
    element.SetExplicitEndTag(true);
    const std::string name = element.GetAttribute("name");
    if (!name.empty()) Record(order, name);
  }
  // Any other element, `select` included, is neither marked nor recorded.
}

}  // namespace

void CollectFieldOrder(const KelXmlNode& node, std::string& order) {
  // Each node traps for itself: a failure ends this node's walk, keeps the
  // names found so far, and the walk goes on with the next sibling.
  WalkTree(
      node,
      [&order](const KelXmlNode& n) {
        return Trapped(code::kFieldOrder, [&] {
          if (n.NodeType() == kElementNode) MarkAndRecord(n, order);
        });
      },
      [](const KelXmlNode&) {});
}

}  // namespace formwiz
