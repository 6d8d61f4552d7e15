// The form definition tree: a small XML node tree with shared ownership,
// filled by expat and written by our own serialiser.
//
// Handles are pointer-sized values passed by value; a default handle is null.
// Every operation on a null handle raises Failure 91. A node taken out of the
// tree with RemoveChild stays valid with its whole subtree for as long as a
// handle holds it, and can be inserted anywhere again. Attributes keep their
// order. Text nodes are real siblings and are never merged by an edit.
//
// Nodes count their handles themselves, without atomic operations: a tree
// and every handle into it belong to one thread at a time, as the dialogs
// that edit it do.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace formwiz {

namespace detail {

// The count of owners that every node carries. 32 bits are plenty: two
// thousand million handles would not fit in memory.
struct Counted {
  int32_t refs = 0;
};

// Frees a node whose count has dropped to zero, and with it every node that
// only it held.
void Destroy(Counted* node);

struct Node;

// An owning pointer to a node: the tree's links and every handle hold one.
// What needs the node itself is defined with the node (kelxml_node.h).
class NodeRef {
 public:
  NodeRef() = default;
  explicit NodeRef(Node* p);
  NodeRef(const NodeRef& other) : p_(other.p_) { Retain(); }
  NodeRef(NodeRef&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
  NodeRef& operator=(NodeRef other) noexcept {
    std::swap(p_, other.p_);
    return *this;
  }
  ~NodeRef() {
    if (p_ && --p_->refs == 0) Destroy(p_);
  }

  Node* get() const;
  Node* operator->() const { return get(); }
  Node& operator*() const { return *get(); }
  explicit operator bool() const { return p_ != nullptr; }
  bool operator==(const NodeRef& other) const { return p_ == other.p_; }
  // Gives up ownership without dropping the count: the caller now owns it.
  Node* release();

 private:
  void Retain() const {
    if (p_) ++p_->refs;
  }
  Counted* p_ = nullptr;
};

}  // namespace detail

class KelXmlAttribute;
class KelXmlAttributeList;
class KelXmlNodeList;

// Values of NodeType.
enum KelXmlNodeType : int32_t {
  kElementNode = 1,
  kTextNode = 3,
  kProcessingInstructionNode = 7,
  kCommentNode = 8,
  kDocumentNode = 9,
};

struct TreeSize;

// Any node of the tree.
class KelXmlNode {
 public:
  KelXmlNode() = default;

  // True for a null handle: "no node".
  bool IsNull() const { return !node_; }
  explicit operator bool() const { return static_cast<bool>(node_); }
  // Two handles are equal when they name the same node (or both none).
  bool operator==(const KelXmlNode& other) const {
    return node_ == other.node_;
  }

  // A deep copy (attributes, children, marks), attached nowhere.
  KelXmlNode CloneNode(bool deep) const;
  // Makes `new_child` a child in front of `ref_child`; a null `ref_child`
  // appends. A `new_child` that sits elsewhere is taken from there first.
  void InsertBefore(const KelXmlNode& new_child,
                    const KelXmlNode& ref_child) const;
  // Detaches `child` from this node and gives it back, subtree and all.
  KelXmlNode RemoveChild(const KelXmlNode& child) const;
  KelXmlNode FirstChild() const;
  KelXmlNode NextSibling() const;
  // The node above; null for a detached node and for a document's root.
  KelXmlNode ParentNode() const;
  // An element's name; "#text", "#comment", "#processing-instruction" or
  // "#document" for the other kinds, so that no other kind of node can pass
  // for an element of the vocabulary.
  std::string TagName() const;
  int32_t NodeType() const;
  // All attributes of an element; null for other kinds of node.
  KelXmlAttributeList Attributes() const;
  // This node with its tag, attributes and subtree, as text.
  std::string Xml() const;
  // The concatenated text of all text nodes below (the node's own for a
  // text node).
  std::string Text() const;
  // The value of an attribute; empty when absent or on a non-element.
  std::string GetAttribute(std::string_view name) const;
  // The same without a copy, for loops over many nodes: valid until the
  // attribute or its element changes.
  std::string_view AttributeView(std::string_view name) const;
  // The attribute itself; null when absent.
  KelXmlAttribute GetAttributeNode(std::string_view name) const;
  void RemoveAttribute(std::string_view name) const;
  // Sets the value, appending the attribute when it is new.
  void SetAttribute(std::string_view name, std::string_view value) const;
  // The elements below this node with that tag, in document order.
  KelXmlNodeList GetElementsByTagName(std::string_view tag) const;

 protected:
  explicit KelXmlNode(detail::NodeRef node) : node_(std::move(node)) {}
  // The node, or Failure 91 when the handle is null.
  detail::Node& Get() const;

  detail::NodeRef node_;

  friend class KelXmlDocument;
  friend class KelXmlNodeList;
  friend struct detail::Node;
  friend TreeSize MeasureTree(const KelXmlNode& node);
};

// An element node. Taking an element handle of another kind of node is a type
// mismatch (Failure 13); of a null node, a null element.
class KelXmlElement : public KelXmlNode {
 public:
  KelXmlElement() = default;
  KelXmlElement(const KelXmlNode& node);  // NOLINT: the tree's own cast

  // Creates an element with that tag as the last child and gives it back.
  KelXmlElement AppendNewElement(std::string_view tag) const;
  // Mark: Xml writes an end tag, also with no children.
  void SetExplicitEndTag(bool flag) const;
  // Mark: Xml writes the start tag alone, the way HTML writes `input`.
  void SetNoEndTag(bool flag) const;
};

// A text node.
class KelXmlText : public KelXmlNode {
 public:
  KelXmlText() = default;
  KelXmlText(const KelXmlNode& node);  // NOLINT: the tree's own cast

  std::string Data() const;
  void SetData(std::string_view data) const;
};

// One attribute of an element: the handle names the attribute of its
// element, so after RemoveAttribute it reads empty, and SetValue adds the
// attribute again, at the end.
class KelXmlAttribute {
 public:
  KelXmlAttribute() = default;
  bool IsNull() const { return !element_; }
  explicit operator bool() const { return static_cast<bool>(element_); }

  std::string Name() const;
  std::string Value() const;
  void SetValue(std::string_view value) const;

 private:
  KelXmlAttribute(detail::NodeRef element, std::string name)
      : element_(std::move(element)), name_(std::move(name)) {}
  detail::NodeRef element_;
  std::string name_;

  friend class KelXmlNode;
  friend class KelXmlAttributeList;
};

// The attributes of one element, by position from 0. Live: it sees later
// changes of the element.
class KelXmlAttributeList {
 public:
  KelXmlAttributeList() = default;
  bool IsNull() const { return !element_; }
  explicit operator bool() const { return static_cast<bool>(element_); }

  int32_t Count() const;
  // The attribute at `index`; null behind the end.
  KelXmlAttribute Item(int32_t index) const;

 private:
  explicit KelXmlAttributeList(detail::NodeRef element)
      : element_(std::move(element)) {}
  detail::NodeRef element_;

  friend class KelXmlNode;
};

// A list of nodes, taken when it was made.
class KelXmlNodeList {
 public:
  int32_t Count() const { return static_cast<int32_t>(nodes_.size()); }
  // The node at `index`; null when the list has no such entry.
  KelXmlNode Item(int32_t index) const;

 private:
  std::vector<detail::NodeRef> nodes_;

  friend class KelXmlNode;
};

// A document: parses a string into a tree below its root.
class KelXmlDocument {
 public:
  // Deepest element nesting LoadXml accepts. Forms nest a handful of levels;
  // a document nested deeper is refused at once instead of being built. No
  // walk of the tree depends on it: they all work without recursion, for
  // trees that code builds deeper than this too.
  static constexpr int kMaxDepth = 256;

  KelXmlDocument();

  // Parses the whole string as one well-formed UTF-8 document. Gives false,
  // and keeps the tree it had, for anything else: malformed text, invalid
  // UTF-8, a DOCTYPE (refused outright, so no entity is ever expanded), or
  // elements nested deeper than kMaxDepth.
  bool LoadXml(std::string_view xml);
  // The node above the top element; its FirstChild is the top node.
  KelXmlNode Root() const;

 private:
  detail::NodeRef root_;
};

// How much a subtree holds: its nodes, and the bytes of its names, texts and
// attributes.
struct TreeSize {
  int64_t nodes = 0;
  int64_t bytes = 0;
};
TreeSize MeasureTree(const KelXmlNode& node);

// Parses `xml` as a document and gives its first element named `tag`, the
// top one or any below it in document order; null when the text does not
// parse or holds no such element. The document is dropped, so the element
// comes back detached, with its whole subtree.
KelXmlElement FindElementInXml(std::string_view xml, std::string_view tag);

}  // namespace formwiz
