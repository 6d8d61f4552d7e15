#include "formdoc/kelxml.h"

#include <utility>
#include <vector>

#include "component/failure.h"
#include "formdoc/kelxml_node.h"

namespace formwiz {
namespace detail {

void Destroy(Counted* counted) {
  Node* top = static_cast<Node*>(counted);
  // A node that dies is detached: only a linked node has a next sibling.
  if (!top->first_child) {
    delete top;
    return;
  }
  // Iterative, so that neither a deep tree nor a long row of siblings can
  // exhaust the stack: every node that dies lets go of each of its children,
  // which comes out detached, and those that nobody else holds die next.
  std::vector<Node*> dying{top};
  while (!dying.empty()) {
    Node* n = dying.back();
    dying.pop_back();
    n->last_child = nullptr;
    Node* child = n->first_child.release();
    while (child != nullptr) {
      Node* next = child->next_sibling.release();
      child->parent = nullptr;
      child->prev_sibling = nullptr;
      if (--child->refs == 0) dying.push_back(child);
      child = next;
    }
    delete n;
  }
}

NodeRef& Node::OwningSlot() {
  return prev_sibling ? prev_sibling->next_sibling : parent->first_child;
}

void Node::Link(NodeRef child, Node* ref) {
  Node* raw = child.get();
  raw->parent = this;
  if (ref == nullptr) {
    raw->prev_sibling = last_child;
    NodeRef& slot = last_child ? last_child->next_sibling : first_child;
    slot = std::move(child);
    last_child = raw;
    return;
  }
  NodeRef& slot = ref->OwningSlot();
  raw->prev_sibling = ref->prev_sibling;
  raw->next_sibling = std::move(slot);  // takes over ownership of ref
  ref->prev_sibling = raw;
  slot = std::move(child);
}

void Node::Unlink() {
  Node* p = parent;
  if (p == nullptr) return;
  NodeRef& slot = OwningSlot();
  if (next_sibling) {
    next_sibling->prev_sibling = prev_sibling;
  } else {
    p->last_child = prev_sibling;
  }
  // The caller's handle keeps this node alive while the slot lets go of it.
  slot = std::move(next_sibling);
  parent = nullptr;
  prev_sibling = nullptr;
}

Attr* Node::FindAttr(std::string_view attr_name) {
  // Compared in place, first letter first: names are a few letters long,
  // every field of a list is asked for several, and names of one length
  // often differ at once ("included" and "template").
  const size_t n = attr_name.size();
  for (Attr& a : attrs) {
    if (a.name.size() != n) continue;
    size_t i = 0;
    while (i < n && a.name[i] == attr_name[i]) ++i;
    if (i == n) return &a;
  }
  return nullptr;
}

const Attr* Node::FindAttr(std::string_view attr_name) const {
  return const_cast<Node*>(this)->FindAttr(attr_name);
}

}  // namespace detail

using detail::Node;
using detail::NodeRef;

namespace {

bool IsAncestorOrSelf(const Node* candidate, const Node* node) {
  for (const Node* n = node; n != nullptr; n = n->parent) {
    if (n == candidate) return true;
  }
  return false;
}

NodeRef CopyOne(const Node& source) {
  NodeRef copy = detail::NewNode(source.type());
  copy->value = source.value;
  copy->explicit_end_tag = source.explicit_end_tag;
  copy->no_end_tag = source.no_end_tag;
  copy->attrs = source.attrs;
  return copy;
}

}  // namespace

Node& KelXmlNode::Get() const {
  if (!node_) Raise(err::kObjectNotSet);
  return *node_;
}

KelXmlNode KelXmlNode::CloneNode(bool deep) const {
  const Node& source = Get();
  NodeRef root = CopyOne(source);
  if (!deep) return KelXmlNode(root);
  // Pairs of (source, copy) whose children still have to be copied.
  std::vector<std::pair<const Node*, Node*>> work{{&source, root.get()}};
  while (!work.empty()) {
    auto [from, to] = work.back();
    work.pop_back();
    for (const Node* c = from->first_child.get(); c;
         c = c->next_sibling.get()) {
      Node* copy = to->Append(CopyOne(*c));
      work.emplace_back(c, copy);
    }
  }
  return KelXmlNode(root);
}

void KelXmlNode::InsertBefore(const KelXmlNode& new_child,
                              const KelXmlNode& ref_child) const {
  Node& self = Get();
  Node& child = new_child.Get();
  if (self.type() != kElementNode && self.type() != kDocumentNode) {
    Raise(err::kInvalidArgument);  // only elements and documents have children
  }
  if (child.type() == kDocumentNode || IsAncestorOrSelf(&child, &self)) {
    Raise(err::kInvalidArgument);  // would make a cycle
  }
  Node* ref = ref_child.node_.get();
  if (ref != nullptr && ref->parent != &self) Raise(err::kInvalidArgument);
  if (ref == &child) return;  // already in that very place
  NodeRef keep = new_child.node_;
  child.Unlink();
  self.Link(std::move(keep), ref);
}

KelXmlNode KelXmlNode::RemoveChild(const KelXmlNode& child) const {
  Node& self = Get();
  Node& c = child.Get();
  if (c.parent != &self) Raise(err::kInvalidArgument);
  c.Unlink();
  return child;
}

KelXmlNode KelXmlNode::FirstChild() const {
  return KelXmlNode(Get().first_child);
}

KelXmlNode KelXmlNode::NextSibling() const {
  return KelXmlNode(Get().next_sibling);
}

KelXmlNode KelXmlNode::ParentNode() const {
  Node* p = Get().parent;
  // A parent is alive while it has us as a child: someone holds it.
  return p ? KelXmlNode(NodeRef(p)) : KelXmlNode();
}

std::string KelXmlNode::TagName() const {
  const Node& n = Get();
  switch (n.type()) {
    case kElementNode:
      return n.value;
    case kProcessingInstructionNode:
      return "#processing-instruction";
    case kTextNode:
      return "#text";
    case kCommentNode:
      return "#comment";
    case kDocumentNode:
      return "#document";
  }
  return {};
}

int32_t KelXmlNode::NodeType() const { return Get().type(); }

KelXmlAttributeList KelXmlNode::Attributes() const {
  if (Get().type() != kElementNode) return {};
  return KelXmlAttributeList(node_);
}

std::string KelXmlNode::Xml() const { return detail::WriteXml(Get()); }

std::string KelXmlNode::Text() const {
  const Node& self = Get();
  if (self.type() == kProcessingInstructionNode) {
    return std::string(self.PiData());
  }
  if (self.type() != kElementNode && self.type() != kDocumentNode) {
    return self.value;
  }
  std::string text;
  detail::Walk(
      self,
      [&text](const Node& n) {
        if (n.type() == kTextNode) text += n.value;
      },
      [](const Node&) {});
  return text;
}

std::string KelXmlNode::GetAttribute(std::string_view name) const {
  const detail::Attr* a = Get().FindAttr(name);
  return a ? a->value : std::string();
}

std::string_view KelXmlNode::AttributeView(std::string_view name) const {
  const detail::Attr* a = Get().FindAttr(name);
  return a ? std::string_view(a->value) : std::string_view();
}

KelXmlAttribute KelXmlNode::GetAttributeNode(std::string_view name) const {
  if (!Get().FindAttr(name)) return {};
  return KelXmlAttribute(node_, std::string(name));
}

void KelXmlNode::RemoveAttribute(std::string_view name) const {
  auto& attrs = Get().attrs;
  for (auto it = attrs.begin(); it != attrs.end(); ++it) {
    if (it->name == name) {
      attrs.erase(it);
      return;
    }
  }
}

void KelXmlNode::SetAttribute(std::string_view name,
                              std::string_view value) const {
  Node& n = Get();
  if (n.type() != kElementNode) Raise(err::kInvalidArgument);
  if (detail::Attr* a = n.FindAttr(name)) {
    a->value = value;
    return;
  }
  n.attrs.push_back(detail::Attr{std::string(name), std::string(value)});
}

KelXmlNodeList KelXmlNode::GetElementsByTagName(std::string_view tag) const {
  const Node& self = Get();
  KelXmlNodeList list;
  detail::Walk(
      self,
      [&](const Node& n) {
        if (&n != &self && n.type() == kElementNode && n.value == tag) {
          list.nodes_.emplace_back(const_cast<Node*>(&n));
        }
      },
      [](const Node&) {});
  return list;
}

TreeSize MeasureTree(const KelXmlNode& node) {
  TreeSize size;
  detail::Walk(
      node.Get(),
      [&size](const Node& n) {
        ++size.nodes;
        size.bytes += static_cast<int64_t>(n.value.size());
        for (const detail::Attr& a : n.attrs) {
          size.bytes += static_cast<int64_t>(a.name.size() + a.value.size());
        }
      },
      [](const Node&) {});
  return size;
}

KelXmlElement::KelXmlElement(const KelXmlNode& node) : KelXmlNode(node) {
  if (node_ && node_->type() != kElementNode) Raise(err::kTypeMismatch);
}

KelXmlElement KelXmlElement::AppendNewElement(std::string_view tag) const {
  Node& self = Get();
  NodeRef child = detail::NewNode(kElementNode);
  child->value = tag;
  KelXmlElement handle;
  handle.node_ = child;
  self.Link(std::move(child), nullptr);
  return handle;
}

void KelXmlElement::SetExplicitEndTag(bool flag) const {
  Get().explicit_end_tag = flag;
}

void KelXmlElement::SetNoEndTag(bool flag) const { Get().no_end_tag = flag; }

KelXmlText::KelXmlText(const KelXmlNode& node) : KelXmlNode(node) {
  if (node_ && node_->type() != kTextNode) Raise(err::kTypeMismatch);
}

std::string KelXmlText::Data() const { return Get().value; }

void KelXmlText::SetData(std::string_view data) const { Get().value = data; }

std::string KelXmlAttribute::Name() const {
  if (!element_) Raise(err::kObjectNotSet);
  return name_;
}

std::string KelXmlAttribute::Value() const {
  if (!element_) Raise(err::kObjectNotSet);
  const detail::Attr* a = element_->FindAttr(name_);
  return a ? a->value : std::string();
}

void KelXmlAttribute::SetValue(std::string_view value) const {
  if (!element_) Raise(err::kObjectNotSet);
  if (detail::Attr* a = element_->FindAttr(name_)) {
    a->value = value;
  } else {
    element_->attrs.push_back(detail::Attr{name_, std::string(value)});
  }
}

int32_t KelXmlAttributeList::Count() const {
  if (!element_) Raise(err::kObjectNotSet);
  return static_cast<int32_t>(element_->attrs.size());
}

KelXmlAttribute KelXmlAttributeList::Item(int32_t index) const {
  if (!element_) Raise(err::kObjectNotSet);
  if (index < 0 || index >= Count()) return {};
  return KelXmlAttribute(element_,
                         element_->attrs[static_cast<size_t>(index)].name);
}

KelXmlNode KelXmlNodeList::Item(int32_t index) const {
  if (index < 0 || index >= Count()) return {};
  return KelXmlNode(nodes_[static_cast<size_t>(index)]);
}

KelXmlDocument::KelXmlDocument() : root_(detail::NewNode(kDocumentNode)) {}

KelXmlNode KelXmlDocument::Root() const { return KelXmlNode(root_); }

}  // namespace formwiz
