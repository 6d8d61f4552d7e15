// The serialiser. Output is XML that LoadXml reads back to the same tree,
// except where the end-tag marks ask for HTML's way of writing an element.
//
// Choices made here:
// - An element with no children is written `<a></a>`, never `<a/>`: a browser
//   reads `<td/>` as an open tag, and both forms are the same XML.
// - A no-end-tag element is written as its start tag alone; children it may
//   have follow it, as a browser would place them anyway.
// - Text escapes &, <, > and CR; attribute values escape &, <, " and tab, LF,
//   CR, so that a reader's normalisation cannot change them.
// - Characters that XML 1.0 cannot hold at all (most C0 controls, U+FFFE,
//   U+FFFF) and bytes that are not UTF-8 are written as U+FFFD, so the output
//   always parses again. Only values set by code can hold them: a parsed tree
//   never does.
#include <string>
#include <string_view>

#include "formdoc/kelxml_node.h"

namespace formwiz::detail {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// Length of the valid UTF-8 sequence at the start of `s` holding a character
// that XML allows, with that character in `cp`; 0 when there is none.
size_t XmlCharAt(std::string_view s, char32_t& cp) {
  auto byte = [&s](size_t i) { return static_cast<unsigned char>(s[i]); };
  const unsigned char b0 = byte(0);
  size_t len;
  if (b0 < 0x80) {
    cp = b0;
    len = 1;
  } else if (b0 >= 0xC2 && b0 <= 0xDF) {
    cp = b0 & 0x1F;
    len = 2;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    cp = b0 & 0x0F;
    len = 3;
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    cp = b0 & 0x07;
    len = 4;
  } else {
    return 0;
  }
  if (s.size() < len) return 0;
  for (size_t i = 1; i < len; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (byte(i) & 0x3F);
  }
  // Overlong forms, surrogates and code points past the last plane.
  if ((len == 3 && cp < 0x800) || (len == 4 && cp < 0x10000) ||
      (cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) {
    return 0;
  }
  const bool allowed = cp == 0x9 || cp == 0xA || cp == 0xD ||
                       (cp >= 0x20 && cp <= 0xD7FF) ||
                       (cp >= 0xE000 && cp <= 0xFFFD) || cp >= 0x10000;
  return allowed ? len : 0;
}

// Whether `c` is written as it is, in text and in attribute values alike.
bool IsPlainAscii(unsigned char c) {
  return c >= 0x20 && c < 0x80 && c != '&' && c != '<' && c != '>' && c != '"';
}

void Escape(std::string& out, std::string_view s, bool in_attribute) {
  while (!s.empty()) {
    // Most text is plain ASCII: copied in one piece, not character by
    // character.
    size_t plain = 0;
    while (plain < s.size() &&
           IsPlainAscii(static_cast<unsigned char>(s[plain]))) {
      ++plain;
    }
    if (plain > 0) {
      out.append(s.data(), plain);
      s.remove_prefix(plain);
      continue;
    }
    char32_t cp = 0;
    const size_t len = XmlCharAt(s, cp);
    if (len == 0) {
      out += kReplacement;
      s.remove_prefix(1);
      continue;
    }
    switch (cp) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += in_attribute ? ">" : "&gt;";
        break;
      case '"':
        out += in_attribute ? "&quot;" : "\"";
        break;
      case '\r':
        out += "&#13;";
        break;
      case '\t':
        out += in_attribute ? "&#9;" : "\t";
        break;
      case '\n':
        out += in_attribute ? "&#10;" : "\n";
        break;
      default:
        out += s.substr(0, len);
    }
    s.remove_prefix(len);
  }
}

void WriteStart(std::string& out, const Node& n) {
  switch (n.type()) {
    case kElementNode:
      out += '<';
      out += n.value;
      for (const auto& a : n.attrs) {
        out += ' ';
        out += a.name;
        out += "=\"";
        Escape(out, a.value, /*in_attribute=*/true);
        out += '"';
      }
      out += '>';
      break;
    case kTextNode:
      Escape(out, n.value, /*in_attribute=*/false);
      break;
    case kCommentNode:
      out += "<!--";
      out += n.value;
      out += "-->";
      break;
    case kProcessingInstructionNode:
      out += "<?";
      out += n.value;  // the target, and the content behind a space
      out += "?>";
      break;
    case kDocumentNode:
      break;
  }
}

void WriteEnd(std::string& out, const Node& n) {
  if (n.type() != kElementNode || n.no_end_tag) return;
  out += "</";
  out += n.value;
  out += '>';
}

}  // namespace

std::string WriteXml(const Node& node) {
  std::string out;
  Walk(
      node, [&out](const Node& n) { WriteStart(out, n); },
      [&out](const Node& n) { WriteEnd(out, n); });
  return out;
}

}  // namespace formwiz::detail
