// Placeholder substitution: fills a field's values into every text node and
// attribute value of its fragment.
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "component/failure.h"
#include "component/utils.h"
#include "formdoc/budget.h"
#include "formdoc/form_doc.h"
#include "formdoc/walk.h"

namespace formwiz {
namespace {

// Every value is written back, changed or not.
void SubstituteInAttributes(const KelXmlNode& element, const PairList& pairs) {
  const KelXmlAttributeList attributes = element.Attributes();
  if (!attributes) return;
  const int32_t count = attributes.Count();
  for (int32_t i = 0; i < count; ++i) {
    const KelXmlAttribute attribute = attributes.Item(i);
    std::string value = attribute.Value();
    ApplySubstitutions(value, pairs);
    attribute.SetValue(value);
  }
}

void SubstituteInText(const KelXmlText& text, const PairList& pairs) {
  std::string data = text.Data();
  if (data.empty()) return;
  ApplySubstitutions(data, pairs);
  text.SetData(data);
}

}  // namespace

void SubstituteInTree(const KelXmlNode& node, const PairList& pairs) {
  // Each node traps for itself, so a failure deep down costs that one node
  // and the rest of the fragment is still filled. An element's children are
  // filled before its attributes; comments and processing instructions keep
  // their placeholders.
  WalkTree(
      node,
      [&pairs](const KelXmlNode& n) {
        bool element = false;
        Trapped(code::kSubstitute, [&] {
          switch (n.NodeType()) {
            case kElementNode:
              element = true;
              break;
            case kTextNode:
              SubstituteInText(n, pairs);
              break;
            default:
              break;
          }
        });
        return element;
      },
      [&pairs](const KelXmlNode& element) {
        Trapped(code::kSubstitute,
                [&] { SubstituteInAttributes(element, pairs); });
      });
}

void ApplySubstitutions(std::string& text, const PairList& pairs) {
  // The pairs run one after another over the whole text, so what one pair
  // inserts is seen by the pairs behind it. An empty placeholder ends the
  // list; so does the end of the vector, should a list lack its marker.
  for (size_t i = 0; i < pairs.size() && !pairs[i].empty(); i += 2) {
    // A placeholder without its value is a broken list; reading past its end
    // is a subscript out of range, reported by the node's trap.
    if (i + 1 >= pairs.size()) Raise(err::kSubscriptOutOfRange);
    ReplaceAll(text, pairs[i], pairs[i + 1]);
  }
}

void ReplaceAll(std::string& text, std::string_view find,
                std::string_view replacement) {
  // An empty `find` would match everywhere and never move on; there is
  // nothing sensible to replace, so the text stays as it is.
  if (find.empty()) return;
  size_t hits = 0;
  for (size_t hit = text.find(find); hit != std::string::npos;
       hit = text.find(find, hit + find.size())) {
    ++hits;
  }
  if (hits == 0) return;  // No hit: the text is untouched.
  // Inside an assembly, what the text grows by comes out of its budget;
  // past it the text stays as it is and the assembly fails as a whole.
  if (replacement.size() > find.size()) {
    const size_t growth = hits * (replacement.size() - find.size());
    AssemblyBudget* budget = AssemblyBudget::Current();
    if (budget && !budget->Take(0, static_cast<int64_t>(growth))) return;
  }
  // Searching on behind the inserted text of the rewritten string is the
  // same as searching on behind `find` in the original, so the result is
  // built in one pass instead of rewriting the text at every hit.
  std::string result;
  result.reserve(text.size() - hits * find.size() + hits * replacement.size());
  size_t from = 0;
  for (size_t hit = text.find(find); hit != std::string::npos;
       hit = text.find(find, from)) {
    result.append(text, from, hit - from);
    result.append(replacement);
    from = hit + find.size();
  }
  result.append(text, from, std::string::npos);
  text = std::move(result);
}

}  // namespace formwiz
