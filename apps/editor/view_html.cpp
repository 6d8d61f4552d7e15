#include "view_html.h"

#include <cstdint>
#include <memory>
#include <random>
#include <string_view>
#include <utility>

namespace formwiz::editor {
namespace {

// A paragraph's text is escaped on the way out, so a comment cannot be put
// into it; a token of letters and digits, which no writer escapes, stands
// in its place and is swapped for the comment afterwards. It is drawn at
// random and checked against the page, so no text of the page can look
// like it.
bool Holds(const host::Page& page, std::string_view token) {
  for (const host::PageBlock& block : page.blocks) {
    if (block.text.find(token) != std::string::npos) return true;
    if (block.source && block.source->find(token) != std::string::npos)
      return true;
    if (block.object && block.object->html_source &&
        block.object->html_source->find(token) != std::string::npos)
      return true;
  }
  return page.title.find(token) != std::string::npos;
}

std::string Token(const host::Page& page) {
  std::random_device seed;
  std::mt19937_64 random(seed());
  for (;;) {
    std::string token = "fwview" + std::to_string(random()) + "x";
    if (!Holds(page, token)) return token;
  }
}

std::string Comment(std::string_view marker, size_t index) {
  return "<!--" + std::string(marker) + std::to_string(index) + "-->";
}

}  // namespace

std::string ViewHtml(const host::Page& page) {
  host::Page marked;
  marked.document = page.document;
  marked.title = page.title;
  marked.frame = page.frame;
  marked.blocks.reserve(page.blocks.size());
  const std::string token = Token(page);
  bool any_paragraph = false;
  for (size_t i = 0; i < page.blocks.size(); ++i) {
    const host::PageBlock& block = page.blocks[i];
    host::PageBlock copy;
    if (block.object) {
      // A copy, so that the page's own object stays as it is, without the
      // picture and the stored definition (see ViewHtml).
      auto object = std::make_shared<host::PageObject>(
          std::weak_ptr<host::PageDocument>());
      object->prog_id = block.object->prog_id;
      object->display_name = block.object->display_name;
      object->html_source =
          Comment(kBlockMarker, i) + block.object->html_source.value_or("");
      copy.object = std::move(object);
    } else if (block.source) {
      copy.source = Comment(kBlockMarker, i) + *block.source;
    } else {
      copy.text = token + std::to_string(i) + ":" + block.text;
      any_paragraph = true;
    }
    marked.blocks.push_back(std::move(copy));
  }
  std::string html = host::WritePage(marked);
  if (!any_paragraph) return html;

  std::string out;
  out.reserve(html.size() + page.blocks.size() * 8);
  size_t from = 0;
  for (size_t at = html.find(token); at != std::string::npos;
       at = html.find(token, from)) {
    const size_t digits = at + token.size();
    const size_t colon = html.find(':', digits);
    if (colon == std::string::npos) break;
    out.append(html, from, at - from);
    out += "<!--";
    out += kParagraphMarker;
    out.append(html, digits, colon - digits);
    out += "-->";
    from = colon + 1;
  }
  out.append(html, from);
  return out;
}

}  // namespace formwiz::editor
