// What a posted form means: the reserved qln_ fields, and the visitor's
// fields in the order qln_SortOrder gives.
#pragma once

#include <string>
#include <vector>

#include "delivery/store/record.h"

namespace formwiz::delivery {

// The name of the honeypot field of the bundled orbs: a text box hidden from
// people and from assistive technology, which only robots fill.
inline constexpr const char* kHoneypotField = "qln_Website";

struct PostedForm {
  std::string email_to;    // qln_EmailTo
  std::string subject;     // qln_Subject
  std::string send_mode;   // "2" comma-separated, else "1" human-readable
  std::string ok_message;  // qln_OKMessage
  int form_index = 0;      // qln_FormIndex's leading digits, 0 when none
  // Every field whose name does not begin with "qln_": first in the order of
  // qln_SortOrder (a named field not posted is there, empty), then those the
  // order does not name, in posted order. A name posted twice keeps its
  // values joined by ", " in one field.
  std::vector<store::Field> fields;
  bool honeypot_filled = false;  // kHoneypotField was posted non-empty
};

PostedForm ReadPostedForm(const std::vector<store::Field>& pairs);

}  // namespace formwiz::delivery
