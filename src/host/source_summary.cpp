#include "host/source_summary.h"

#include <gumbo.h>

#include <memory>
#include <vector>

namespace formwiz::host {

namespace {

struct OutputDeleter {
  void operator()(GumboOutput* output) const {
    gumbo_destroy_output(&kGumboDefaultOptions, output);
  }
};

std::string TagName(const GumboElement& element) {
  if (element.tag != GUMBO_TAG_UNKNOWN) {
    return gumbo_normalized_tagname(element.tag);
  }
  // A custom element: its name as written, from the start tag's text.
  GumboStringPiece piece = element.original_tag;
  gumbo_tag_from_original_text(&piece);
  std::string name(piece.data ? piece.data : "", piece.length);
  for (char& c : name) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return name;
}

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

void AppendSpace(std::string& out) {
  if (!out.empty() && out.back() != ' ') out += ' ';
}

// The elements that run on within a line of text.
bool IsInline(GumboTag tag) {
  switch (tag) {
    case GUMBO_TAG_A:
    case GUMBO_TAG_ABBR:
    case GUMBO_TAG_B:
    case GUMBO_TAG_BDI:
    case GUMBO_TAG_BDO:
    case GUMBO_TAG_CITE:
    case GUMBO_TAG_CODE:
    case GUMBO_TAG_DATA:
    case GUMBO_TAG_DFN:
    case GUMBO_TAG_EM:
    case GUMBO_TAG_I:
    case GUMBO_TAG_KBD:
    case GUMBO_TAG_MARK:
    case GUMBO_TAG_Q:
    case GUMBO_TAG_S:
    case GUMBO_TAG_SAMP:
    case GUMBO_TAG_SMALL:
    case GUMBO_TAG_SPAN:
    case GUMBO_TAG_STRONG:
    case GUMBO_TAG_SUB:
    case GUMBO_TAG_SUP:
    case GUMBO_TAG_TIME:
    case GUMBO_TAG_U:
    case GUMBO_TAG_VAR:
    case GUMBO_TAG_WBR:
    case GUMBO_TAG_UNKNOWN:
      return true;
    default:
      return false;
  }
}

// Appends the text under `node` with white space folded to single spaces,
// until `out` is long enough. Walks with its own stack: the parser's depth
// limit is not ours to rely on.
void CollectWords(const GumboNode* root, std::string& out) {
  std::vector<const GumboNode*> stack{root};
  while (!stack.empty() && out.size() <= kSummaryWords) {
    const GumboNode* node = stack.back();
    stack.pop_back();
    if (!node) {
      AppendSpace(out);
    } else if (node->type == GUMBO_NODE_ELEMENT ||
               node->type == GUMBO_NODE_TEMPLATE) {
      const GumboElement& element = node->v.element;
      if (element.tag == GUMBO_TAG_SCRIPT || element.tag == GUMBO_TAG_STYLE) {
        continue;
      }
      // Cells, items and other boxes are apart on the page: so are their
      // words. A null entry stands for that space after the children.
      const bool apart = !IsInline(element.tag);
      if (apart) {
        AppendSpace(out);
        stack.push_back(nullptr);
      }
      for (unsigned i = element.children.length; i > 0; --i) {
        stack.push_back(
            static_cast<const GumboNode*>(element.children.data[i - 1]));
      }
    } else if (node->type == GUMBO_NODE_TEXT ||
               node->type == GUMBO_NODE_WHITESPACE ||
               node->type == GUMBO_NODE_CDATA) {
      for (const char* c = node->v.text.text; *c; ++c) {
        if (IsSpace(*c)) {
          AppendSpace(out);
        } else {
          out += *c;
        }
      }
    }
  }
}

// Cuts `words` to the limit at a space, else at a character's start, and
// marks the cut.
void Shorten(std::string& words) {
  while (!words.empty() && words.back() == ' ') words.pop_back();
  if (words.size() <= kSummaryWords) return;
  size_t cut = words.rfind(' ', kSummaryWords);
  if (cut == std::string::npos || cut == 0) {
    cut = kSummaryWords;
    // Not inside a UTF-8 sequence.
    while (cut > 0 && (static_cast<unsigned char>(words[cut]) & 0xC0) == 0x80) {
      --cut;
    }
  }
  words.resize(cut);
  words += "\xE2\x80\xA6";
}

}  // namespace

SourceSummary SummarizeSource(std::string_view html) {
  const std::string input(html.substr(0, kSummaryInputLimit));
  GumboOptions options = kGumboDefaultOptions;
  // Parsed as what it is: content of a body.
  options.fragment_context = GUMBO_TAG_BODY;
  options.fragment_namespace = GUMBO_NAMESPACE_HTML;
  const std::unique_ptr<GumboOutput, OutputDeleter> output(
      gumbo_parse_with_options(&options, input.data(), input.size()));
  SourceSummary summary;
  if (!output || output->root->type != GUMBO_NODE_ELEMENT) return summary;
  const GumboVector& children = output->root->v.element.children;
  // A comment before the element is a note about it; the element names
  // the block. Only a block of nothing but comments is named a comment.
  const GumboNode* comment = nullptr;
  const GumboNode* first = nullptr;
  for (unsigned i = 0; i < children.length && !first; ++i) {
    const auto* node = static_cast<const GumboNode*>(children.data[i]);
    if (node->type == GUMBO_NODE_WHITESPACE) continue;
    if (node->type == GUMBO_NODE_COMMENT) {
      if (!comment) comment = node;
      continue;
    }
    first = node;
  }
  if (first && (first->type == GUMBO_NODE_ELEMENT ||
                first->type == GUMBO_NODE_TEMPLATE)) {
    summary.tag = TagName(first->v.element);
    CollectWords(first, summary.words);
  } else if (first) {
    // Text outside elements, maybe with inline elements in it: all of it.
    CollectWords(output->root, summary.words);
  } else if (comment) {
    summary.tag = "#comment";
    summary.words = comment->v.text.text;
  }
  // A comment's text keeps its own line breaks out of the row too.
  std::string folded;
  for (char c : summary.words) {
    if (IsSpace(c)) {
      if (!folded.empty() && folded.back() != ' ') folded += ' ';
    } else {
      folded += c;
    }
  }
  summary.words = std::move(folded);
  Shorten(summary.words);
  return summary;
}

}  // namespace formwiz::host
