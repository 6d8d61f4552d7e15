#include "host/source_summary.h"

#include <vector>

#include "host/html_parse.h"

namespace formwiz::host {
namespace {

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

// Appends `text` with runs of white space as one space, until `out` is
// full; whether there is room for more.
bool AppendWords(std::string_view text, std::string& out) {
  for (const char c : text) {
    if (IsSpace(c)) {
      if (!out.empty() && out.back() != ' ') out += ' ';
      continue;
    }
    // Full only at the start of a character, so no character is cut.
    if (out.size() >= kSummaryWords && (c & 0xC0) != 0x80) return false;
    out += c;
  }
  return true;
}

// Elements inside a line of text; any other starts a new one, which the
// summary shows as a space.
bool InLine(GumboTag tag) {
  switch (tag) {
    case GUMBO_TAG_A:
    case GUMBO_TAG_ABBR:
    case GUMBO_TAG_B:
    case GUMBO_TAG_CODE:
    case GUMBO_TAG_EM:
    case GUMBO_TAG_I:
    case GUMBO_TAG_MARK:
    case GUMBO_TAG_Q:
    case GUMBO_TAG_S:
    case GUMBO_TAG_SMALL:
    case GUMBO_TAG_SPAN:
    case GUMBO_TAG_STRONG:
    case GUMBO_TAG_SUB:
    case GUMBO_TAG_SUP:
    case GUMBO_TAG_TIME:
    case GUMBO_TAG_U:
      return true;
    default:
      return false;
  }
}

bool Unread(GumboTag tag) {
  return tag == GUMBO_TAG_SCRIPT || tag == GUMBO_TAG_STYLE ||
         tag == GUMBO_TAG_TEMPLATE || tag == GUMBO_TAG_NOSCRIPT;
}

}  // namespace

SourceSummary SummarizeSource(std::string_view source) {
  SourceSummary summary;
  const HtmlParse parse(source, GUMBO_TAG_BODY);
  if (parse.output() == nullptr) return summary;
  const GumboNode* root = parse.output()->root;
  // Depth first with a stack of its own; children pushed last first.
  std::vector<const GumboNode*> todo;
  const GumboVector& top = root->v.element.children;
  for (size_t i = top.length; i-- > 0;) {
    todo.push_back(static_cast<const GumboNode*>(top.data[i]));
  }
  bool first = true;
  while (!todo.empty()) {
    const GumboNode* node = todo.back();
    todo.pop_back();
    if (node->type == GUMBO_NODE_ELEMENT || node->type == GUMBO_NODE_TEMPLATE) {
      const GumboElement& e = node->v.element;
      if (first) {
        if (e.tag != GUMBO_TAG_UNKNOWN) {
          summary.tag = gumbo_normalized_tagname(e.tag);
        } else if (e.original_tag.length > 0) {
          // A custom element: the name it was written with.
          GumboStringPiece name = e.original_tag;
          gumbo_tag_from_original_text(&name);
          for (size_t i = 0; i < name.length; ++i) {
            const char c = name.data[i];
            summary.tag += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
          }
        }
        first = false;
      }
      if (Unread(e.tag)) continue;
      if (!InLine(e.tag)) AppendWords(" ", summary.words);
      for (size_t i = e.children.length; i-- > 0;) {
        todo.push_back(static_cast<const GumboNode*>(e.children.data[i]));
      }
    } else if (node->type == GUMBO_NODE_WHITESPACE) {
      AppendWords(" ", summary.words);
    } else if (node->type == GUMBO_NODE_TEXT ||
               node->type == GUMBO_NODE_CDATA) {
      first = false;
      if (!AppendWords(node->v.text.text, summary.words)) break;
    }
  }
  while (!summary.words.empty() && summary.words.back() == ' ') {
    summary.words.pop_back();
  }
  return summary;
}

}  // namespace formwiz::host
