// Assembly: turns the definition's `form` into plain HTML by replacing each
// field node that the walk reaches with its filled-in fragment, or deleting
// it when the chosen form choice leaves it out.
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "component/failure.h"
#include "component/utils.h"
#include "formdoc/budget.h"
#include "formdoc/form_doc.h"

namespace formwiz {

using std::string_view_literals::operator""sv;
namespace {

// The placeholders whose pair depends on the field having the attribute, in
// the order their pairs go into the list.
constexpr std::string_view kSizeAttributes[] = {"size", "maxlength", "rows",
                                                "cols"};

// The pair list of one field. An attribute that is present but empty gives a
// pair with an empty value; a missing one gives no pair, so that its
// placeholder stays in the HTML as it is written.
PairList BuildPairList(const KelXmlNode& node) {
  PairList pairs = {"[fieldname]", node.GetAttribute("name"), "[fieldprompt]",
                    node.GetAttribute("prompt")};
  for (std::string_view attribute : kSizeAttributes) {
    if (node.GetAttributeNode(attribute)) {
      pairs.push_back("[" + std::string(attribute) + "]");
      pairs.push_back(node.GetAttribute(attribute));
    }
  }
  pairs.emplace_back();  // The end marker.
  return pairs;
}

// The templates of a definition by name, gathered once per assembly: every
// field asks for its template, and the templates sit among the form choices
// and comments of the definition. Assembly changes only the form, so the
// list stays true while it runs.
class TemplateIndex {
 public:
  struct Entry {
    std::string name;
    KelXmlNode node;
    // What one copy of its children costs the budget.
    int64_t nodes = 0;
    int64_t bytes = 0;
  };

  explicit TemplateIndex(const KelXmlNode& impl) {
    for (KelXmlNode child = impl.FirstChild(); child;
         child = child.NextSibling()) {
      if (child.TagName() == "template"sv) {
        Entry entry{child.GetAttribute("name"), child};
        for (KelXmlNode c = child.FirstChild(); c; c = c.NextSibling()) {
          const TreeSize size = MeasureTree(c);
          entry.nodes += size.nodes;
          entry.bytes += size.bytes;
        }
        entries_.push_back(std::move(entry));
      }
    }
  }
  // The first template named `name`; null when there is none.
  const Entry* Find(std::string_view name) const {
    for (const Entry& entry : entries_) {
      if (entry.name == name) return &entry;
    }
    return nullptr;
  }

 private:
  std::vector<Entry> entries_;
};

// ExpandField with the template step given: `apply(node, name)`.
template <typename Apply>
void Expand(const KelXmlNode& node, int16_t form_index, Apply&& apply) {
  Trapped(code::kExpandField, [&] {
    const std::string template_name = node.GetAttribute("template");
    if (!template_name.empty()) apply(KelXmlElement(node), template_name);
    const KelXmlNode parent = node.ParentNode();
    const KelXmlNode follower = node.NextSibling();
    // The field node leaves the tree for good; only its children come back.
    parent.RemoveChild(node);
    if (!IsIncluded(node, form_index)) return;
    const PairList pairs = BuildPairList(node);
    // The children land in their own order at the field's place; a null
    // follower appends them at the parent's end.
    while (const KelXmlNode child = node.FirstChild()) {
      node.RemoveChild(child);
      SubstituteInTree(child, pairs);
      parent.InsertBefore(child, follower);
    }
  });
}

}  // namespace

KelXmlElement FirstFormChild(const KelXmlNode& impl) {
  for (KelXmlNode child = impl.FirstChild(); child;
       child = child.NextSibling()) {
    if (child.TagName() == "form"sv) return child;
  }
  return KelXmlElement();
}

bool AssembleForm(const KelXmlNode& impl, int16_t form_index) {
  bool found = false;
  const bool ran_through = Trapped(code::kAssemble, [&] {
    const KelXmlElement form = FirstFormChild(impl);
    if (!form) return;
    found = true;
    // Only an "orb" form keeps its fields in a table. The walk enters the
    // first table only, one level down, and never comes back out: nodes of
    // the form behind that table are not visited.
    bool enter_table = form.GetAttribute("uitype") == "orb"sv;
    const TemplateIndex templates(impl);
    const TreeSize definition = MeasureTree(impl);
    AssemblyBudget budget(definition.nodes, definition.bytes);
    const auto apply = [&templates, &budget](const KelXmlElement& field,
                                             std::string_view name) {
      // A name that matches no template is no failure: the field keeps the
      // children it has.
      const TemplateIndex::Entry* source = templates.Find(name);
      if (source && budget.Take(source->nodes, source->bytes)) {
        CloneChildrenInto(source->node, field);
      }
    };
    KelXmlNode node = form.FirstChild();
    while (node) {
      // Taken before the field is expanded, so the walk never visits what
      // the expansion puts in its place.
      KelXmlNode next = node.NextSibling();
      const std::string tag = node.TagName();
      if (tag == "section"sv) {
        Expand(node, form_index, apply);
        // Past the budget the form is not made at all: one report, and the
        // caller writes nothing.
        if (budget.exhausted()) Raise(err::kOutOfMemory);
      } else if (tag == "table"sv && enter_table) {
        next = node.FirstChild();
        enter_table = false;
      }
      node = next;
    }
  });
  return found && ran_through;
}

void ExpandField(const KelXmlNode& impl, const KelXmlNode& node,
                 int16_t form_index) {
  Expand(node, form_index,
         [&impl](const KelXmlElement& field, std::string_view name) {
           ApplyTemplate(impl, field, name);
         });
}

void ApplyTemplate(const KelXmlNode& impl, const KelXmlElement& node,
                   std::string_view templateName) {
  for (KelXmlNode child = impl.FirstChild(); child;
       child = child.NextSibling()) {
    if (child.TagName() == "template"sv &&
        child.AttributeView("name") == templateName) {
      CloneChildrenInto(child, node);
      return;
    }
  }
  // A name that matches no template is no failure: the field keeps the
  // children it has.
}

void CloneChildrenInto(const KelXmlNode& source, const KelXmlNode& target) {
  // Copies, so that the template stays whole for the next field using it.
  for (KelXmlNode child = source.FirstChild(); child;
       child = child.NextSibling()) {
    target.InsertBefore(child.CloneNode(true), KelXmlNode());
  }
}

bool IsIncluded(const KelXmlNode& node, int16_t form_index) {
  return IncludedCharIs(node, form_index, "y");
}

}  // namespace formwiz
