// The HTML the rendered page view loads: the page exactly as WritePage
// writes it, with a comment that names each block's index, so that the
// view's script can tell which nodes make up which block. Qt-free, so that
// it can be checked without a browser.
#pragma once

#include <string>

#include "host/page.h"

namespace formwiz::editor {

// Comments in the view's HTML: "fw-block N" stands right before the nodes
// of block N (a form or a block of someone else's page); "fw-para N" is the
// first child of the element that is paragraph N.
inline constexpr char kBlockMarker[] = "fw-block ";
inline constexpr char kParagraphMarker[] = "fw-para ";

// The page as WritePage writes it, marked. The forms' pictures and stored
// definitions are left out: they stand in comments that a browser never
// shows, and copying and loading them at every render would only cost
// time (they are most of a page file's bytes).
std::string ViewHtml(const host::Page& page);

}  // namespace formwiz::editor
