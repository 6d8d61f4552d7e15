// The steps that every writer of a page object's HTML shares, and the form
// index that a commit takes from the form.
#pragma once

#include <cstdint>
#include <string>

#include "formdoc/kelxml.h"

namespace formwiz {

// Turns `form` into the HTML of the page: collects the field order (with the
// end-tag marks), writes it into qln_SortOrder, removes `defaultaction` and
// `uitype`, and gives Xml of the form. Failures of the field order and of the
// hidden field are reported by them and the rest goes on; a failure of the
// rest is raised to the caller's trap.
std::string FinishFormHtml(const KelXmlElement& form);

}  // namespace formwiz
