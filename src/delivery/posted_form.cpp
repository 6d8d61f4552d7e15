#include "delivery/posted_form.h"

#include <climits>
#include <map>
#include <set>
#include <string_view>

#include "delivery/text_util.h"

namespace formwiz::delivery {
namespace {

constexpr std::string_view kReservedPrefix = "qln_";

bool IsReserved(std::string_view name) {
  return name.starts_with(kReservedPrefix);
}

std::string_view TrimSpaces(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) {
    s.remove_prefix(1);
  }
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t'))
    s.remove_suffix(1);
  return s;
}

// qln_FormIndex's leading digits; 0 when there are none or too many for an
// int (no page holds that many forms).
int LeadingNumber(std::string_view s) {
  int n = 0;
  for (char c : s) {
    if (c < '0' || c > '9') break;
    if (n > (INT_MAX - 9) / 10) return 0;
    n = n * 10 + (c - '0');
  }
  return n;
}

// The names qln_SortOrder gives, trimmed, each once. Reserved names and
// names no post could carry (with a control character) are left out.
std::vector<std::string> SortOrderNames(std::string_view order) {
  std::vector<std::string> names;
  std::set<std::string_view> seen;
  while (!order.empty()) {
    const size_t comma = order.find(',');
    const std::string_view name = TrimSpaces(order.substr(0, comma));
    order = comma == std::string_view::npos ? std::string_view()
                                            : order.substr(comma + 1);
    if (name.empty() || IsReserved(name) || text::HasAsciiControl(name) ||
        !seen.insert(name).second) {
      continue;
    }
    names.emplace_back(name);
  }
  return names;
}

}  // namespace

PostedForm ReadPostedForm(const std::vector<store::Field>& pairs) {
  PostedForm form;
  form.send_mode = "1";
  // Each reserved field counts once, as first posted; a robot that repeats
  // them gains nothing.
  std::set<std::string> reserved_seen;
  std::string sort_order;
  // The visitor's fields by name, in first-posted order, repeated names
  // joined.
  std::vector<store::Field> posted;
  std::map<std::string, size_t> index;
  for (const store::Field& pair : pairs) {
    if (!IsReserved(pair.name)) {
      auto [it, added] = index.emplace(pair.name, posted.size());
      if (added) {
        posted.push_back(pair);
      } else {
        posted[it->second].value += ", " + pair.value;
      }
      continue;
    }
    if (pair.name == kHoneypotField && !pair.value.empty()) {
      form.honeypot_filled = true;
    }
    if (!reserved_seen.insert(pair.name).second) continue;
    if (pair.name == "qln_EmailTo") {
      form.email_to = pair.value;
    } else if (pair.name == "qln_Subject") {
      form.subject = pair.value;
    } else if (pair.name == "qln_SendMode") {
      form.send_mode = TrimSpaces(pair.value) == "2" ? "2" : "1";
    } else if (pair.name == "qln_OKMessage") {
      form.ok_message = pair.value;
    } else if (pair.name == "qln_SortOrder") {
      sort_order = pair.value;
    } else if (pair.name == "qln_FormIndex") {
      form.form_index = LeadingNumber(TrimSpaces(pair.value));
    }
  }

  std::vector<bool> placed(posted.size(), false);
  for (std::string& name : SortOrderNames(sort_order)) {
    if (auto it = index.find(name); it != index.end()) {
      placed[it->second] = true;
      form.fields.push_back(posted[it->second]);
    } else {
      form.fields.push_back({std::move(name), ""});
    }
  }
  for (size_t i = 0; i < posted.size(); ++i) {
    if (!placed[i]) form.fields.push_back(std::move(posted[i]));
  }
  return form;
}

}  // namespace formwiz::delivery
