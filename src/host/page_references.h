// The files a page loads as it is shown: its stylesheets and icons
// (link href), pictures, scripts, media and frames (src, and a video's
// poster, an object's data). The values as written; which of them name a
// file beside the page is the caller's to decide. What a stylesheet loads
// in turn (url(), @import) and the candidates of srcset are not read.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace formwiz::host {

// Each value once, in document order. Empty for a page the parser gives up
// on (past its bounds).
std::vector<std::string> PageReferences(std::string_view html);

}  // namespace formwiz::host
