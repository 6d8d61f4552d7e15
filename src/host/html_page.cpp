// Pages formwiz did not write: any UTF-8 HTML page, a whole document or a
// fragment such as a template partial, opened so that saving it unchanged
// gives back the same bytes and an edit changes only the blocks edited.
//
// gumbo parses the page (never a search for tags). The top-level children
// of <body>, as its tree gives them and placed by their source offsets,
// start the blocks; block i is every byte from its start to the start of
// block i + 1, so the blocks tile the source and writing them back in order
// is the file again by construction. What stands before the first block
// (the head, the body's start tag) and after the last (from the body's end
// tag, or </html>, or the end of the file) is the frame, kept as bytes.
//
// The tree is not the source: gumbo adds elements the source only implies
// (they have no position), moves nodes out of source order (text that
// stood in a table goes before it; text after </body> goes into the body)
// and closes elements the source left open. So each top-level node counts
// by the span of bytes its whole subtree covers; a node that has none is no
// block; spans that overlap or come out of order are merged into one block
// rather than reordered, since moving bytes is what a block must never do
// to a page. Nodes after the body's end tag stay in the frame.
//
// White space and comments start no block. A comment on a line of its own
// goes with the block after it: it is most often that block's heading
// (<!-- Contact -->), and it should move and go with it. A comment on the
// line where a block ends (<!-- /.container -->) stays with that block.
//
// A form formwiz made here is written between the page file's markers, in
// the file's own line ends, and read back by the page file's reader; a
// marker at the top level of the body is an object block again. A
// top-level <p> whose bytes are exactly what formwiz writes for a paragraph
// is a paragraph again. Both keep the bytes that followed them up to the
// next block in `gap`.
//
// A page file is read by the page file's reader. One that reader refuses
// (someone linked a stylesheet in it by hand, converted its line ends, or
// it was cut short) is read here like any page, but for one thing: its
// blocks are the children of its <main>, where formwiz put them. Markers
// that are whole still make forms, the rest is bytes kept as they are.
//
// Refused, with the page left as it was: invalid UTF-8 (a BOM is fine and
// kept), NUL bytes, a <meta> that declares another encoding, a file with no
// HTML element at all, a frameset page, and a page whose parse goes past
// html_parse.h's bounds.
#include <gumbo.h>

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/html_parse.h"
#include "host/page.h"
#include "host/page_format.h"

namespace formwiz::host {
namespace {

constexpr std::string_view kBom = "\xEF\xBB\xBF";
constexpr size_t kNone = std::string_view::npos;

bool IsAsciiSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

// The offset of the first byte that does not belong to a well-formed UTF-8
// sequence (no overlong forms, surrogates or values past U+10FFFF), or
// kNone.
size_t InvalidUtf8At(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    const auto b = static_cast<unsigned char>(s[i]);
    if (b < 0x80) {
      ++i;
      continue;
    }
    size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;  // range of the second byte
    if (b >= 0xC2 && b <= 0xDF) {
      length = 2;
    } else if (b >= 0xE0 && b <= 0xEF) {
      length = 3;
      if (b == 0xE0) low = 0xA0;
      if (b == 0xED) high = 0x9F;
    } else if (b >= 0xF0 && b <= 0xF4) {
      length = 4;
      if (b == 0xF0) low = 0x90;
      if (b == 0xF4) high = 0x8F;
    } else {
      return i;
    }
    if (s.size() - i < length) return i;
    for (size_t k = 1; k < length; ++k) {
      const auto c = static_cast<unsigned char>(s[i + k]);
      if (c < (k == 1 ? low : 0x80) || c > (k == 1 ? high : 0xBF)) return i;
    }
    i += length;
  }
  return kNone;
}

std::string_view TrimAscii(std::string_view s) {
  while (!s.empty() && IsAsciiSpace(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsAsciiSpace(s.back())) s.remove_suffix(1);
  return s;
}

std::string AsciiLower(std::string_view s) {
  std::string out(s);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

// The labels browsers take for UTF-8.
bool IsUtf8Label(std::string_view label) {
  const std::string l = AsciiLower(TrimAscii(label));
  return l == "utf-8" || l == "utf8" || l == "unicode-1-1-utf-8" ||
         l == "unicode11utf8" || l == "unicode20utf8" || l == "x-unicode20utf8";
}

// The charset that the content of an http-equiv Content-Type <meta> names,
// as browsers find it there: after "charset", optional spaces, "=", and a
// value quoted or up to a space or ";".
std::optional<std::string> CharsetFromContent(std::string_view content) {
  const std::string lower = AsciiLower(content);
  for (size_t at = lower.find("charset"); at != std::string::npos;
       at = lower.find("charset", at + 1)) {
    size_t i = at + 7;
    while (i < content.size() && IsAsciiSpace(content[i])) ++i;
    if (i >= content.size() || content[i] != '=') continue;
    ++i;
    while (i < content.size() && IsAsciiSpace(content[i])) ++i;
    if (i >= content.size()) return std::nullopt;
    if (content[i] == '"' || content[i] == '\'') {
      const size_t end = content.find(content[i], i + 1);
      if (end == std::string_view::npos) return std::nullopt;
      return std::string(content.substr(i + 1, end - i - 1));
    }
    size_t end = i;
    while (end < content.size() && !IsAsciiSpace(content[end]) &&
           content[end] != ';') {
      ++end;
    }
    return std::string(content.substr(i, end - i));
  }
  return std::nullopt;
}

const char* Attribute(const GumboElement& element, const char* name) {
  const GumboAttribute* attribute =
      gumbo_get_attribute(&element.attributes, name);
  return attribute != nullptr ? attribute->value : nullptr;
}

// The encoding a <meta> declares, if it declares one.
std::optional<std::string> DeclaredEncoding(const GumboElement& meta) {
  if (const char* charset = Attribute(meta, "charset")) return charset;
  const char* equiv = Attribute(meta, "http-equiv");
  const char* content = Attribute(meta, "content");
  if (equiv == nullptr || content == nullptr ||
      AsciiLower(TrimAscii(equiv)) != "content-type") {
    return std::nullopt;
  }
  return CharsetFromContent(content);
}

bool IsElement(const GumboNode* node) {
  return node->type == GUMBO_NODE_ELEMENT || node->type == GUMBO_NODE_TEMPLATE;
}

const GumboVector* Children(const GumboNode* node) {
  if (IsElement(node)) return &node->v.element.children;
  if (node->type == GUMBO_NODE_DOCUMENT) return &node->v.document.children;
  return nullptr;
}

const GumboNode* Child(const GumboVector& children, size_t i) {
  return static_cast<const GumboNode*>(children.data[i]);
}

// The first child element of `parent` with `tag`, or null.
const GumboNode* ChildElement(const GumboNode* parent, GumboTag tag) {
  const GumboVector* children = Children(parent);
  for (size_t i = 0; children != nullptr && i < children->length; ++i) {
    const GumboNode* child = Child(*children, i);
    if (IsElement(child) && child->v.element.tag == tag) return child;
  }
  return nullptr;
}

// The bytes a node's whole subtree covers in the source: from the first to
// past the last of its tags and texts that come from the source. Empty
// (start kNone) for nodes the parser only implied.
struct Span {
  size_t start = kNone;
  size_t end = 0;

  bool empty() const { return start == kNone; }
  void Add(size_t at, size_t length, size_t limit) {
    if (at >= limit) return;
    start = std::min(start, at);
    end = std::max(end, std::min(at + length, limit));
  }
};

// Walked with a stack of its own, so that nesting of any depth is safe.
// White space counts for nothing (gumbo's lengths of it are not reliable
// either); `markers`, when given, receives the comments that may be the
// markers of formwiz's forms. Bytes from `limit` on count for nothing.
Span SubtreeSpan(const GumboNode* root, std::string_view html, size_t limit,
                 std::vector<const GumboNode*>* markers) {
  Span span;
  std::vector<const GumboNode*> todo{root};
  while (!todo.empty()) {
    const GumboNode* node = todo.back();
    todo.pop_back();
    if (IsElement(node)) {
      const GumboElement& e = node->v.element;
      if (e.original_tag.length > 0) {
        span.Add(e.start_pos.offset, e.original_tag.length, limit);
      }
      if (e.original_end_tag.length > 0) {
        span.Add(e.end_pos.offset, e.original_end_tag.length, limit);
      }
      for (size_t i = 0; i < e.children.length; ++i) {
        todo.push_back(Child(e.children, i));
      }
    } else if (node->type != GUMBO_NODE_DOCUMENT &&
               node->type != GUMBO_NODE_WHITESPACE) {
      const GumboText& t = node->v.text;
      span.Add(t.start_pos.offset, t.original_text.length, limit);
      if (markers != nullptr && node->type == GUMBO_NODE_COMMENT &&
          html.substr(std::min<size_t>(t.start_pos.offset, limit))
              .starts_with(page_format::kObjectStart)) {
        markers->push_back(node);
      }
    }
  }
  return span;
}

// Consecutive top-level nodes that form one block.
struct Group {
  Span span;
  // The one node of the group, when it is one node.
  const GumboNode* node = nullptr;
  // The object formwiz wrote there, when the group is one.
  std::shared_ptr<PageObject> object;
};

// Adds a node's span to the groups in source order, merging the groups it
// overlaps or precedes.
void AddToGroups(std::vector<Group>& groups, Group group) {
  if (!groups.empty() && group.span.start >= groups.back().span.start &&
      group.span.end <= groups.back().span.end) {
    // Inside the last group (the HTML of an object, or a node the parser
    // moved there): part of it. An object stays an object; anything else is
    // no longer one node.
    if (!groups.back().object) groups.back().node = nullptr;
    return;
  }
  bool merged = false;
  while (!groups.empty() && group.span.start < groups.back().span.end) {
    group.span.start = std::min(group.span.start, groups.back().span.start);
    group.span.end = std::max(group.span.end, groups.back().span.end);
    groups.pop_back();
    merged = true;
  }
  if (merged) {
    group.node = nullptr;
    group.object = nullptr;
  }
  groups.push_back(std::move(group));
}

// The text of the <title>, as a browser shows it: ASCII white space
// trimmed and each run of it one space.
std::string TitleText(const GumboElement& title) {
  std::string raw;
  for (size_t i = 0; i < title.children.length; ++i) {
    const GumboNode* child = Child(title.children, i);
    if (child->type == GUMBO_NODE_TEXT ||
        child->type == GUMBO_NODE_WHITESPACE) {
      raw += child->v.text.text;
    }
  }
  std::string out;
  for (char c : raw) {
    if (!IsAsciiSpace(c)) {
      out += c;
    } else if (!out.empty() && out.back() != ' ') {
      out += ' ';
    }
  }
  if (!out.empty() && out.back() == ' ') out.pop_back();
  return out;
}

// NUL bytes anywhere, or control characters that text has no use for near
// the start: a picture, an archive, a program, not a page in some other
// encoding.
bool LooksBinary(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return true;
  for (const char c : text.substr(0, 1024)) {
    if (static_cast<unsigned char>(c) < 0x20 && !IsAsciiSpace(c)) return true;
  }
  return false;
}

// Why the file is not a UTF-8 page that formwiz can read, or empty.
std::string Unreadable(std::string_view text) {
  if (TrimAscii(text).empty()) return "empty: not an HTML page";
  const size_t invalid = InvalidUtf8At(text);
  if (invalid == 0 || LooksBinary(text)) return "binary data, not an HTML page";
  if (invalid != kNone) {
    return "not UTF-8 (byte " + std::to_string(invalid) +
           " is not UTF-8): formwiz edits UTF-8 pages only; convert it first";
  }
  return "";
}

// A foreign page read into its parts, before any of it goes to the page.
class ForeignReader {
 public:
  ForeignReader(std::string_view text, std::weak_ptr<PageDocument> document)
      : text_(text), document_(std::move(document)) {}

  bool Read(std::string& error) {
    if (error = Unreadable(text_); !error.empty()) return false;
    const size_t base = text_.starts_with(kBom) ? kBom.size() : 0;
    html_ = text_.substr(base);
    // A CR LF file gets CR LF in what formwiz adds to it.
    const size_t first_newline = html_.find('\n');
    if (first_newline != kNone && first_newline > 0 &&
        html_[first_newline - 1] == '\r') {
      frame_.newline = "\r\n";
    }
    HtmlParse parse(html_);
    if (parse.output() == nullptr) {
      error = parse.error();
      return false;
    }
    const GumboNode* root = parse.output()->root;
    const GumboNode* head = ChildElement(root, GUMBO_TAG_HEAD);
    const GumboNode* body = ChildElement(root, GUMBO_TAG_BODY);
    if (body == nullptr) {
      error = "has no <body> (a frameset page): forms go into a page's body";
      return false;
    }
    page_file_ = IsPageFileHead(head);
    if (error = WrongEncoding(head); !error.empty()) return false;
    if (!HasElement(parse.output(), {root, head, body})) {
      error = "not an HTML page: there is no HTML element in it";
      return false;
    }
    const GumboNode* container = body;
    size_t body_end = BodyEnd(root, body);
    if (const GumboNode* main = page_file_ ? PageFileMain(body) : nullptr) {
      container = main;
      // A file cut short has no </main>: its blocks run to the end.
      if (main->v.element.original_end_tag.length > 0) {
        body_end =
            std::min<size_t>(main->v.element.end_pos.offset, html_.size());
      }
    }
    const std::vector<Group> groups = Groups(container, body_end);
    // The blocks end at the body's end tag, which never moves: an element
    // left open across it is cut there, its rest stays after. Only a form
    // of formwiz's is never cut (its HTML is its own business).
    size_t end = body_end;
    if (!groups.empty() && groups.back().object) {
      end = std::max(end, groups.back().span.end);
    }
    std::vector<size_t> starts;
    for (size_t k = 0; k < groups.size(); ++k) {
      starts.push_back(BlockStart(groups, k, container));
    }
    for (size_t k = 0; k < groups.size(); ++k) {
      const size_t next = k + 1 < groups.size() ? starts[k + 1] : end;
      blocks_.push_back(MakeBlock(groups[k], starts[k], next));
    }
    const size_t first = starts.empty() ? end : starts.front();
    frame_.before = std::string(text_.substr(0, base + first));
    frame_.after = std::string(html_.substr(end));
    ReadTitle(head, base, base + first);
    return true;
  }

  std::vector<PageBlock> blocks_;
  ForeignFrame frame_;
  std::string title_;
  // Whether the head has a page file's generator line: the file was one.
  bool page_file_ = false;

 private:
  // Whether the head has the generator line of formwiz's page files.
  static bool IsPageFileHead(const GumboNode* head) {
    const GumboVector* children = head ? Children(head) : nullptr;
    for (size_t i = 0; children != nullptr && i < children->length; ++i) {
      const GumboNode* child = Child(*children, i);
      if (!IsElement(child) || child->v.element.tag != GUMBO_TAG_META) {
        continue;
      }
      const char* name = Attribute(child->v.element, "name");
      const char* content = Attribute(child->v.element, "content");
      if (name != nullptr && content != nullptr &&
          AsciiLower(name) == "generator" &&
          std::string_view(content).starts_with("formwiz page ")) {
        return true;
      }
    }
    return false;
  }

  // Why the head's <meta> elements name an encoding other than UTF-8, or
  // empty.
  static std::string WrongEncoding(const GumboNode* head) {
    const GumboVector* children = head ? Children(head) : nullptr;
    for (size_t i = 0; children != nullptr && i < children->length; ++i) {
      const GumboNode* child = Child(*children, i);
      if (!IsElement(child) || child->v.element.tag != GUMBO_TAG_META) {
        continue;
      }
      const auto encoding = DeclaredEncoding(child->v.element);
      if (encoding && !IsUtf8Label(*encoding)) {
        return "declares the encoding \"" + std::string(TrimAscii(*encoding)) +
               "\" in a <meta>: formwiz edits UTF-8 pages only; convert it "
               "first";
      }
    }
    return "";
  }

  // Whether the source has a doctype or an element of its own (not one the
  // parser implied) at the top of the tree.
  static bool HasElement(const GumboOutput* output,
                         std::initializer_list<const GumboNode*> parents) {
    if (output->document->v.document.has_doctype) return true;
    for (const GumboNode* parent : parents) {
      if (parent == nullptr) continue;
      if (parent->v.element.original_tag.length > 0) return true;
      const GumboVector& children = parent->v.element.children;
      for (size_t i = 0; i < children.length; ++i) {
        const GumboNode* child = Child(children, i);
        if (IsElement(child) && child->v.element.original_tag.length > 0) {
          return true;
        }
      }
    }
    return false;
  }

  // A page file keeps its blocks in the body's <main>; one edited by hand
  // may have more around it (a header, a footer), which stays as it is.
  // The first <main> at the top of the body with its start tag, if any.
  static const GumboNode* PageFileMain(const GumboNode* body) {
    const GumboVector& children = body->v.element.children;
    for (size_t i = 0; i < children.length; ++i) {
      const GumboNode* child = Child(children, i);
      if (IsElement(child) && child->v.element.tag == GUMBO_TAG_MAIN &&
          child->v.element.original_tag.length > 0) {
        return child;
      }
    }
    return nullptr;
  }

  // Where the body's content ends: its end tag, else </html>, else the end
  // of the file.
  size_t BodyEnd(const GumboNode* root, const GumboNode* body) const {
    const GumboElement& b = body->v.element;
    const GumboElement& r = root->v.element;
    size_t end = html_.size();
    if (b.original_end_tag.length > 0) {
      end = b.end_pos.offset;
    } else if (r.original_end_tag.length > 0) {
      end = r.end_pos.offset;
    }
    return std::min(end, html_.size());
  }

  std::vector<Group> Groups(const GumboNode* body, size_t body_end) {
    std::vector<Group> groups;
    const GumboVector& children = body->v.element.children;
    for (size_t i = 0; i < children.length; ++i) {
      const GumboNode* node = Child(children, i);
      Group group{{}, node, nullptr};
      switch (node->type) {
        case GUMBO_NODE_WHITESPACE:
          continue;
        case GUMBO_NODE_COMMENT: {
          const GumboText& t = node->v.text;
          const size_t at = t.start_pos.offset;
          if (at >= body_end) continue;
          if (auto object = ObjectAt(node)) {
            group = std::move(*object);
            break;
          }
          // A damaged marker is a comment like any other: its bytes are
          // kept, the form is no longer editable.
          comments_.push_back(
              {at, std::min(at + t.original_text.length, html_.size())});
          continue;
        }
        case GUMBO_NODE_TEXT:
        case GUMBO_NODE_CDATA: {
          // From its first visible character: the white space before it
          // belongs to the gap before.
          const GumboText& t = node->v.text;
          size_t at = t.start_pos.offset;
          const size_t end = at + t.original_text.length;
          while (at < end && at < html_.size() && IsAsciiSpace(html_[at])) {
            ++at;
          }
          if (at < end) group.span.Add(at, end - at, html_.size());
          break;
        }
        default: {
          std::vector<const GumboNode*> markers;
          group.span = SubtreeSpan(node, html_, body_end, &markers);
          std::vector<Group> tail = TailObjects(markers, group.span);
          if (tail.empty()) break;
          // The element ends where the first of the forms starts.
          group.span.end = tail.front().span.start;
          group.node = nullptr;
          tail.insert(tail.begin(), std::move(group));
          group = std::move(tail.back());
          tail.pop_back();
          for (Group& before : tail) {
            if (before.span.start < body_end) {
              AddToGroups(groups, std::move(before));
            }
          }
        }
      }
      if (group.span.empty() || group.span.start >= body_end) continue;
      AddToGroups(groups, std::move(group));
    }
    std::sort(comments_.begin(), comments_.end());
    return groups;
  }

  // The object formwiz wrote at a comment node, if it is one's marker.
  std::optional<Group> ObjectAt(const GumboNode* comment) const {
    if (comment->type != GUMBO_NODE_COMMENT) return std::nullopt;
    const size_t start = comment->v.text.start_pos.offset;
    if (!html_.substr(std::min(start, html_.size()))
             .starts_with(page_format::kObjectStart)) {
      return std::nullopt;
    }
    size_t end = start;
    std::string why;
    auto object =
        page_format::ReadObject(html_, end, frame_.newline, document_, why);
    if (!object) return std::nullopt;
    return Group{{start, end}, nullptr, std::move(object)};
  }

  // Forms inserted after an element the page leaves open (a <p> without
  // </p>, a <div> that runs to the end) are, to the parser, inside it. The
  // forms at the end of such an element, back to back but for white space,
  // with nothing of the element after them, are blocks of their own; they
  // are given in page order.
  std::vector<Group> TailObjects(std::vector<const GumboNode*> markers,
                                 const Span& span) const {
    std::vector<Group> objects;
    std::sort(markers.begin(), markers.end(),
              [](const GumboNode* a, const GumboNode* b) {
                return a->v.text.start_pos.offset < b->v.text.start_pos.offset;
              });
    for (size_t i = markers.size(); i-- > 0;) {
      auto object = ObjectAt(markers[i]);
      if (!object || object->span.start <= span.start) break;
      const size_t next =
          objects.empty() ? span.end : objects.back().span.start;
      if (objects.empty() ? object->span.end < next
                          : (object->span.end > next ||
                             !TrimAscii(html_.substr(object->span.end,
                                                     next - object->span.end))
                                  .empty())) {
        break;
      }
      objects.push_back(std::move(*object));
    }
    std::reverse(objects.begin(), objects.end());
    return objects;
  }

  // Where block k starts: at its group, or at the first comment before it
  // that stands on a line of its own (back to the end of the block
  // before). An object's bytes are formwiz's own, so it takes no comment.
  size_t BlockStart(const std::vector<Group>& groups, size_t k,
                    const GumboNode* body) const {
    const Group& group = groups[k];
    if (group.object) return group.span.start;
    size_t from = kNone;
    if (k > 0) {
      from = groups[k - 1].span.end;
    } else if (body->v.element.original_tag.length > 0) {
      const GumboElement& b = body->v.element;
      from = b.start_pos.offset + b.original_tag.length;
    }
    if (from == kNone || from > group.span.start) return group.span.start;
    size_t line_from = from;
    // Only the comments between the two blocks are looked at, so each is
    // looked at once for the whole page.
    for (auto it = std::lower_bound(comments_.begin(), comments_.end(),
                                    std::pair<size_t, size_t>{from, 0});
         it != comments_.end() && it->first < group.span.start; ++it) {
      const auto [start, end] = *it;
      if (start >= line_from &&
          html_.substr(line_from, start - line_from).find('\n') != kNone) {
        return start;
      }
      line_from = std::max(line_from, end);
    }
    return group.span.start;
  }

  // The block of `group`, whose bytes are [start, next).
  PageBlock MakeBlock(const Group& group, size_t start, size_t next) const {
    PageBlock block;
    if (group.object) {
      block.object = group.object;
      block.gap =
          std::string(html_.substr(group.span.end, next - group.span.end));
      return block;
    }
    if (const auto text = ParagraphText(group, start, next)) {
      block.text = *text;
      const size_t written = group.span.end + frame_.newline.size();
      block.gap = std::string(html_.substr(written, next - written));
      return block;
    }
    block.source = std::string(html_.substr(start, next - start));
    return block;
  }

  // The text of a paragraph that stands exactly as formwiz writes one:
  // <p>, the text escaped, </p> and the file's line end.
  std::optional<std::string> ParagraphText(const Group& group, size_t start,
                                           size_t next) const {
    const GumboNode* node = group.node;
    if (node == nullptr || node->type != GUMBO_NODE_ELEMENT ||
        node->v.element.tag != GUMBO_TAG_P || start != group.span.start) {
      return std::nullopt;
    }
    const GumboElement& p = node->v.element;
    constexpr std::string_view kStart = "<p>", kEnd = "</p>";
    if (std::string_view(p.original_tag.data, p.original_tag.length) !=
            kStart ||
        std::string_view(p.original_end_tag.data, p.original_end_tag.length) !=
            kEnd ||
        p.start_pos.offset != start ||
        p.end_pos.offset + kEnd.size() != group.span.end ||
        group.span.end + frame_.newline.size() > next ||
        !html_.substr(group.span.end).starts_with(frame_.newline)) {
      return std::nullopt;
    }
    const size_t content = start + kStart.size();
    std::string text, why;
    if (!page_format::Unescape(
            html_.substr(content, p.end_pos.offset - content), text, why)) {
      return std::nullopt;
    }
    return text;
  }

  // The head's <title>: its text, and where it stands in `before` when it
  // is there whole.
  void ReadTitle(const GumboNode* head, size_t base, size_t before_size) {
    const GumboNode* title =
        head != nullptr ? ChildElement(head, GUMBO_TAG_TITLE) : nullptr;
    if (title == nullptr) return;
    const GumboElement& t = title->v.element;
    title_ = TitleText(t);
    frame_.title_as_read = title_;
    if (t.original_tag.length == 0 || t.original_end_tag.length == 0) return;
    const size_t from = base + t.start_pos.offset + t.original_tag.length;
    const size_t to = base + t.end_pos.offset;
    if (from <= to && to <= before_size)
      frame_.title_range = {{from, to - from}};
  }

  std::string_view text_;
  std::string_view html_;
  std::weak_ptr<PageDocument> document_;
  // The comments among the body's top-level nodes: start and end.
  std::vector<std::pair<size_t, size_t>> comments_;
};

// How many of the forms formwiz wrote in `text` (by their start markers)
// did not read back as forms, of which `read` did.
size_t LostForms(std::string_view text, size_t read) {
  size_t markers = 0;
  for (size_t at = text.find(page_format::kObjectStart); at != kNone;
       at = text.find(page_format::kObjectStart, at + 1)) {
    ++markers;
  }
  return markers > read ? markers - read : 0;
}

}  // namespace

bool ReadPage(std::string_view text, Page& page, std::string& error,
              std::string* changed) {
  if (changed != nullptr) changed->clear();
  if (text.size() > kMaxPageFileSize) {
    error = "too large for a page (" + std::to_string(text.size()) +
            " bytes, at most " + std::to_string(kMaxPageFileSize) + ")";
    return false;
  }
  // A page file that is no longer one (a stylesheet linked by hand, its
  // line ends converted, cut short) is read as the HTML page it now is:
  // what the page file's reader cannot take is kept as bytes, its intact
  // forms stay forms.
  std::string page_file_error;
  const bool page_file = page_format::IsPageFile(text);
  if (page_file && ReadPageFile(text, page, page_file_error)) return true;
  if (!page.document) page.document = std::make_shared<PageDocument>();
  ForeignReader reader(text, page.document);
  if (!reader.Read(error)) {
    // The page file's reader knows best what became of a page file.
    if (page_file) error = page_file_error;
    return false;
  }
  std::vector<std::shared_ptr<PageObject>> objects;
  for (const PageBlock& block : reader.blocks_) {
    if (block.object) objects.push_back(block.object);
  }
  // Worth a word only when some of formwiz's forms no longer read as
  // forms: otherwise nothing of the page is lost to the editor.
  const size_t lost = changed != nullptr && reader.page_file_
                          ? LostForms(text, objects.size())
                          : 0;
  if (lost > 0) {
    // A generator line elsewhere than a page file's: its reader refuses
    // the file all the same, and says why.
    if (Page scratch; !page_file) ReadPageFile(text, scratch, page_file_error);
    *changed = page_file_error + "; " + std::to_string(lost) +
               (lost == 1 ? " form is" : " forms are") +
               " no longer readable as formwiz's and stay as HTML";
  }
  page.document->objects = std::move(objects);
  page.blocks = std::move(reader.blocks_);
  page.title = std::move(reader.title_);
  page.frame = std::move(reader.frame_);
  return true;
}

std::string WritePage(const Page& page) {
  if (!page.frame) return WritePageFile(page);
  const ForeignFrame& frame = *page.frame;
  std::string out;
  const auto& range = frame.title_range;
  if (range && page.title != frame.title_as_read &&
      range->first + range->second <= frame.before.size()) {
    out.append(frame.before, 0, range->first);
    page_format::AppendEscaped(page.title, out);
    out.append(frame.before, range->first + range->second);
  } else {
    out += frame.before;
  }
  for (const PageBlock& block : page.blocks) {
    if (block.object) {
      page_format::AppendObject(*block.object, frame.newline, out);
      out += block.gap;
    } else if (block.source) {
      out += *block.source;
    } else {
      page_format::AppendParagraph(block.text, frame.newline, out);
      out += block.gap;
    }
  }
  out += frame.after;
  return out;
}

bool CanSetTitle(const Page& page) {
  return !page.frame || page.frame->title_range.has_value();
}

}  // namespace formwiz::host
