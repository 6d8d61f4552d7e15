// The walk that the form operations share: a subtree in document order
// through handles, without recursion, so that a tree of any depth, built by
// code past the nesting LoadXml accepts, cannot exhaust the stack.
#pragma once

#include "formdoc/kelxml.h"

namespace formwiz {

// Calls `enter(node)` for `top` and the nodes below it in document order.
// When it gives true the node's children are visited, and then
// `leave(node)` is called; when false, both are passed over. The callbacks
// may change values in the tree but not its shape.
template <typename Enter, typename Leave>
void WalkTree(const KelXmlNode& top, Enter&& enter, Leave&& leave) {
  KelXmlNode node = top;
  for (;;) {
    bool entered = enter(node);
    if (entered) {
      if (KelXmlNode child = node.FirstChild()) {
        node = child;
        continue;
      }
    }
    for (;;) {
      if (entered) leave(node);
      if (node == top) return;
      if (KelXmlNode next = node.NextSibling()) {
        node = next;
        break;
      }
      // Every node climbed back to was entered: only entered nodes have
      // their children visited.
      node = node.ParentNode();
      entered = true;
    }
  }
}

}  // namespace formwiz
