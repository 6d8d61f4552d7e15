// The tree's storage, shared by the node operations, the parser and the
// writer. Not for use outside the tree.
#pragma once

#include <memory>
#include <string>
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
// its parent alive; the destructor unlinks every child it owned, so a child
// that someone still holds comes out detached.
struct Node : std::enable_shared_from_this<Node> {
  explicit Node(KelXmlNodeType t) : type(t) {}
  ~Node();
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  KelXmlNodeType type;
  // Element: tag. Processing instruction: target.
  std::string name;
  // Text, comment, processing instruction: content.
  std::string data;
  std::vector<std::shared_ptr<Attr>> attrs;
  bool explicit_end_tag = false;
  bool no_end_tag = false;

  Node* parent = nullptr;
  std::shared_ptr<Node> first_child;
  std::shared_ptr<Node> next_sibling;
  Node* prev_sibling = nullptr;
  Node* last_child = nullptr;

  // Takes `child` (detached) in front of `ref` (a child of this, or null).
  void Link(std::shared_ptr<Node> child, Node* ref);
  // Takes this node out of its parent; the caller keeps `self` alive.
  void Unlink(const std::shared_ptr<Node>& self);
  // The owning pointer of this node: held by the previous sibling or the
  // parent. Only for a node with a parent.
  std::shared_ptr<Node>& OwningSlot();
  // Appends a new detached node as last child and gives it back.
  Node* Append(std::shared_ptr<Node> child) {
    Node* raw = child.get();
    Link(std::move(child), nullptr);
    return raw;
  }

  Attr* FindAttr(std::string_view attr_name) const;
};

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

}  // namespace formwiz::detail
