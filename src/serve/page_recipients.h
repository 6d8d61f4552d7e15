// Which addresses the forms of a page file send to. `formwiz serve` with no
// configuration allows exactly these, so that a page it serves can mail its
// owner and a changed hidden field cannot mail anyone else.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace formwiz::serve {

// The qln_EmailTo values of the forms on a page (a page file, or any HTML
// page with forms formwiz made in it: host/page.h ReadPage), in page
// order, each once, as written (an alias such as "sales" too; the caller
// decides what is an address). Read from each object's stored definition
// (HTMLData), whose form carries the hidden fields as the wizard wrote them.
// Nothing when `text` is not a page ReadPage reads, or is someone else's
// page without a form formwiz made.
std::optional<std::vector<std::string>> PageRecipients(std::string_view text);

// The same for a file on disk; nothing when it cannot be read or is not a
// page.
std::optional<std::vector<std::string>> PageFileRecipients(
    const std::string& path);

}  // namespace formwiz::serve
