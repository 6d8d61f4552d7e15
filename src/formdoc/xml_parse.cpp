// LoadXml: expat fills our own node tree.
//
// Refusals, each making LoadXml give false and leave the document as it was:
// - a DOCTYPE, stopped at its start, so no entity is ever declared and none
//   can be expanded (external entities are never loaded: no handler is set);
// - elements nested deeper than KelXmlDocument::kMaxDepth, refused as soon
//   as the parser reaches them, before a hostile document is built;
// - anything expat itself refuses: text that is not one well-formed
//   document, invalid UTF-8 (the encoding is fixed to UTF-8, whatever the
//   document declares, since our strings are UTF-8).
// Adjacent character data of one run (expat delivers it in pieces, CDATA
// sections included) becomes one text node; the XML declaration and white
// space outside the top element are not kept.
#include <expat.h>

#include <climits>
#include <memory>
#include <string_view>

#include "formdoc/kelxml.h"
#include "formdoc/kelxml_node.h"
#include "formdoc/parse_ahead.h"

namespace formwiz {
namespace {

using detail::Node;

class TreeBuilder {
 public:
  explicit TreeBuilder(XML_Parser parser)
      : parser_(parser), root_(detail::NewNode(kDocumentNode)) {
    current_ = root_.get();
    XML_SetUserData(parser, this);
    XML_SetElementHandler(parser, &TreeBuilder::OnStart, &TreeBuilder::OnEnd);
    XML_SetCharacterDataHandler(parser, &TreeBuilder::OnText);
    XML_SetCommentHandler(parser, &TreeBuilder::OnComment);
    XML_SetProcessingInstructionHandler(parser, &TreeBuilder::OnPi);
    XML_SetStartDoctypeDeclHandler(parser, &TreeBuilder::OnDoctype);
  }

  bool Parse(std::string_view xml) {
    // XML_Parse takes an int length: feed long texts in pieces.
    constexpr size_t kChunk = size_t{1} << 24;
    do {
      const size_t n = xml.size() < kChunk ? xml.size() : kChunk;
      const bool last = n == xml.size();
      if (XML_Parse(parser_, xml.data(), static_cast<int>(n), last) !=
              XML_STATUS_OK ||
          refused_) {
        return false;
      }
      xml.remove_prefix(n);
    } while (!xml.empty());
    return !refused_;
  }

  detail::NodeRef TakeRoot() { return std::move(root_); }

 private:
  static TreeBuilder& Self(void* data) {
    return *static_cast<TreeBuilder*>(data);
  }

  // Runs a handler body; anything thrown (out of memory) must not cross
  // expat's C frames, so it stops the parse instead.
  template <typename Body>
  void Guarded(Body&& body) {
    if (refused_) return;
    try {
      body();
    } catch (...) {
      Refuse();
    }
  }

  void Refuse() {
    refused_ = true;
    XML_StopParser(parser_, XML_FALSE);
  }

  static void XMLCALL OnStart(void* data, const XML_Char* name,
                              const XML_Char** attrs) {
    TreeBuilder& self = Self(data);
    self.Guarded([&] {
      if (++self.depth_ > KelXmlDocument::kMaxDepth) return self.Refuse();
      detail::NodeRef element = detail::NewNode(kElementNode);
      element->value = name;
      const XML_Char** end = attrs;
      while (*end != nullptr) end += 2;
      element->attrs.reserve(static_cast<size_t>(end - attrs) / 2);
      // Built in their place: a temporary would copy every name and value
      // once more on its way in.
      // (Assigned member by member: clang 14, which the fuzz build uses,
      // cannot construct an aggregate from parentheses.)
      for (const XML_Char** a = attrs; a != end; a += 2) {
        detail::Attr& attr = element->attrs.emplace_back();
        attr.name = a[0];
        attr.value = a[1];
      }
      self.current_ = self.current_->Append(std::move(element));
    });
  }

  static void XMLCALL OnEnd(void* data, const XML_Char*) {
    TreeBuilder& self = Self(data);
    self.Guarded([&] {
      --self.depth_;
      self.current_ = self.current_->parent;
    });
  }

  static void XMLCALL OnText(void* data, const XML_Char* s, int len) {
    TreeBuilder& self = Self(data);
    self.Guarded([&] {
      Node* last = self.current_->last_child;
      if (last == nullptr || last->type() != kTextNode) {
        last = self.current_->Append(detail::NewNode(kTextNode));
      }
      last->value.append(s, static_cast<size_t>(len));
    });
  }

  static void XMLCALL OnComment(void* data, const XML_Char* text) {
    TreeBuilder& self = Self(data);
    self.Guarded([&] {
      detail::NodeRef comment = detail::NewNode(kCommentNode);
      comment->value = text;
      self.current_->Append(std::move(comment));
    });
  }

  static void XMLCALL OnPi(void* data, const XML_Char* target,
                           const XML_Char* text) {
    TreeBuilder& self = Self(data);
    self.Guarded([&] {
      detail::NodeRef pi = detail::NewNode(kProcessingInstructionNode);
      pi->value = target;
      if (*text != '\0') {
        pi->value += ' ';
        pi->value += text;
      }
      self.current_->Append(std::move(pi));
    });
  }

  static void XMLCALL OnDoctype(void* data, const XML_Char*, const XML_Char*,
                                const XML_Char*, int) {
    Self(data).Refuse();
  }

  XML_Parser parser_;
  detail::NodeRef root_;
  Node* current_;
  int depth_ = 0;
  bool refused_ = false;
};

}  // namespace

namespace detail {

NodeRef ParseTree(std::string_view xml) {
  std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
      XML_ParserCreate("UTF-8"), &XML_ParserFree);
  if (!parser) return {};
  TreeBuilder builder(parser.get());
  if (!builder.Parse(xml)) return {};
  return builder.TakeRoot();
}

}  // namespace detail

bool KelXmlDocument::LoadXml(std::string_view xml) {
  detail::NodeRef root = detail::TakeParsedAhead(xml);
  if (!root) root = detail::ParseTree(xml);
  if (!root) return false;
  root_ = std::move(root);
  return true;
}

KelXmlElement FindElementInXml(std::string_view xml, std::string_view tag) {
  KelXmlDocument doc;
  if (!doc.LoadXml(xml)) return {};
  KelXmlNode root = doc.Root();
  for (KelXmlNode top = root.FirstChild(); top; top = top.NextSibling()) {
    if (top.NodeType() != kElementNode) continue;
    KelXmlElement found =
        top.TagName() == tag
            ? KelXmlElement(top)
            : KelXmlElement(top.GetElementsByTagName(tag).Item(0));
    // Take it out of the document, which goes when this returns.
    if (found && found.ParentNode()) found.ParentNode().RemoveChild(found);
    return found;
  }
  return {};
}

}  // namespace formwiz
