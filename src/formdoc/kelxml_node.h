// The tree's storage, shared by the node operations, the parser and the
// writer. Not for use outside the tree.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "formdoc/kelxml.h"

namespace formwiz::detail {

struct Attr {
  std::string name;
  std::string value;
};

// A node owns its first child and its next sibling; parent, previous sibling
// and last child are plain back pointers, cleared whenever the owner lets go.
// So a handle to any node keeps exactly that node and what follows it under
// its parent alive; when a node dies it unlinks every child it owned, so a
// child that someone still holds comes out detached.
//
// Nodes are most of a tree's memory, so a node is kept small: one
// allocation of 104 bytes, where the kind and the marks share a word with the
// count and one string serves every kind, and one more for all its
// attributes side by side. Short names and values stay inside their strings.
struct Node : Counted {
  explicit Node(KelXmlNodeType t) : kind(static_cast<uint8_t>(t)) {}
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  KelXmlNodeType type() const { return static_cast<KelXmlNodeType>(kind); }

  uint8_t kind;
  bool explicit_end_tag = false;
  bool no_end_tag = false;
  // Element: tag. Text, comment: content. Processing instruction: target,
  // then a space and the content when there is any (a target holds no
  // space, so PiData finds the content again).
  std::string value;
  std::vector<Attr> attrs;

  Node* parent = nullptr;
  NodeRef first_child;
  NodeRef next_sibling;
  Node* prev_sibling = nullptr;
  Node* last_child = nullptr;

  // Takes `child` (detached) in front of `ref` (a child of this, or null).
  void Link(NodeRef child, Node* ref);
  // Takes this node out of its parent; the caller holds a handle to it, so
  // it stays alive.
  void Unlink();
  // The owning pointer of this node: held by the previous sibling or the
  // parent. Only for a node with a parent.
  NodeRef& OwningSlot();
  // Appends `child` (detached) as last child and gives it back.
  Node* Append(NodeRef child) {
    Node* raw = child.get();
    Link(std::move(child), nullptr);
    return raw;
  }

  Attr* FindAttr(std::string_view attr_name);
  const Attr* FindAttr(std::string_view attr_name) const;

  std::string_view PiData() const {
    const size_t space = value.find(' ');
    return space == std::string::npos
               ? std::string_view()
               : std::string_view(value).substr(space + 1);
  }
};
static_assert(sizeof(Node) <= 104, "a node grew");

inline NodeRef::NodeRef(Node* p) : p_(p) { Retain(); }
inline Node* NodeRef::get() const { return static_cast<Node*>(p_); }
inline Node* NodeRef::release() {
  return static_cast<Node*>(std::exchange(p_, nullptr));
}

// A new detached node of that kind.
inline NodeRef NewNode(KelXmlNodeType type) { return NodeRef(new Node(type)); }

// Visits `top` and everything below it in document order without recursion,
// so no depth of tree can exhaust the stack: `enter` before a node's
// children, `leave` after them.
template <typename Enter, typename Leave>
void Walk(const Node& top, Enter&& enter, Leave&& leave) {
  const Node* n = &top;
  for (;;) {
    enter(*n);
    if (n->first_child) {
      n = n->first_child.get();
      continue;
    }
    for (;;) {
      leave(*n);
      if (n == &top) return;
      if (n->next_sibling) {
        n = n->next_sibling.get();
        break;
      }
      n = n->parent;
    }
  }
}

// Writes `node` with its subtree as XML text (HTML-style where marked).
std::string WriteXml(const Node& node);

// Parses `xml` as LoadXml does and gives the document node above the tree;
// null for anything LoadXml refuses.
NodeRef ParseTree(std::string_view xml);

}  // namespace formwiz::detail
