#include "host/page_references.h"

#include <gumbo.h>

#include <algorithm>

#include "host/html_parse.h"

namespace formwiz::host {
namespace {

// The attribute of an element with that tag that names a file the browser
// loads to show it, or null.
const char* LoadedAttribute(GumboTag tag) {
  switch (tag) {
    case GUMBO_TAG_LINK:
      return "href";
    case GUMBO_TAG_IMG:
    case GUMBO_TAG_SCRIPT:
    case GUMBO_TAG_SOURCE:
    case GUMBO_TAG_TRACK:
    case GUMBO_TAG_AUDIO:
    case GUMBO_TAG_VIDEO:
    case GUMBO_TAG_INPUT:
    case GUMBO_TAG_IFRAME:
    case GUMBO_TAG_EMBED:
      return "src";
    case GUMBO_TAG_OBJECT:
      return "data";
    default:
      return nullptr;
  }
}

void Keep(std::vector<std::string>& found, const GumboElement& element,
          const char* name) {
  const GumboAttribute* attribute =
      gumbo_get_attribute(&element.attributes, name);
  if (attribute == nullptr || *attribute->value == '\0') return;
  std::string value = attribute->value;
  if (std::find(found.begin(), found.end(), value) == found.end()) {
    found.push_back(std::move(value));
  }
}

}  // namespace

std::vector<std::string> PageReferences(std::string_view html) {
  std::vector<std::string> found;
  const HtmlParse parse(html);
  if (parse.output() == nullptr) return found;
  // Depth first without recursion: a page may nest as deep as the parser's
  // bounds let it. A template's content is inert and loads nothing, and
  // gumbo gives it a node type of its own, which is not descended into.
  std::vector<const GumboNode*> pending = {parse.output()->root};
  while (!pending.empty()) {
    const GumboNode* node = pending.back();
    pending.pop_back();
    if (node->type != GUMBO_NODE_ELEMENT) continue;
    const GumboElement& element = node->v.element;
    if (const char* name = LoadedAttribute(element.tag)) {
      Keep(found, element, name);
    }
    if (element.tag == GUMBO_TAG_VIDEO) Keep(found, element, "poster");
    for (unsigned i = element.children.length; i-- > 0;) {
      pending.push_back(
          static_cast<const GumboNode*>(element.children.data[i]));
    }
  }
  return found;
}

}  // namespace formwiz::host
