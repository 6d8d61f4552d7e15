// A page as the editor holds it: paragraphs of text and page objects in
// order, over the PageDocument that holds the objects; and the page file,
// plain HTML that a browser shows as it is and that the editor reads back.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/page_document.h"

namespace formwiz::host {

// One block of a page: a paragraph of text when `object` is null, else a
// page object.
struct PageBlock {
  std::string text;
  std::shared_ptr<PageObject> object;
};

// The title of a page nobody named, and of every page file of version 1,
// which had no other.
inline constexpr std::string_view kDefaultPageTitle = "Page";

class Page {
 public:
  // A new, empty page with a fresh document.
  Page();

  std::shared_ptr<PageDocument> document;
  std::vector<PageBlock> blocks;
  // What a browser shows in its tab and bookmarks: the document's <title>.
  std::string title{kDefaultPageTitle};

  // Places the objects that the component appended to the document and no
  // block holds yet at `position` (an index into blocks, clamped to the
  // end), in their order. Gives how many were placed.
  size_t AdoptNewObjects(size_t position);
  // Removes a block; an object block also leaves the document.
  void DeleteBlock(size_t index);
};

// The largest page file ReadPageFile takes. Far beyond any page a person
// makes (a picture is a few KiB); a bigger input is refused unread.
inline constexpr size_t kMaxPageFileSize = size_t{64} << 20;

// The version WritePageFile writes. ReadPageFile also takes version 1, the
// same page without the viewport, the title and the forms' stylesheet.
inline constexpr int kPageFileVersion = 2;

// The page file: a complete HTML document in which each object's HTMLSource
// stands in place between comment markers that carry its ProgID, display
// name, stored definition and picture, and each paragraph is a <p>. Only the
// blocks are written: an object of the document that no block holds is not
// on the page. The format is told at the top of page.cpp.
std::string WritePageFile(const Page& page);

// Reads a page file. A damaged or foreign file gives false with a one-line
// reason in `error` and leaves `page` as it was: nothing is half-loaded.
// On success the page's title and blocks and its document's objects are
// those of the file; the document itself (its faults, roles and log) stays.
// `version`, when given, receives the file's version.
bool ReadPageFile(std::string_view text, Page& page, std::string& error,
                  int* version = nullptr);

// Why `title` cannot be a page's title (it has no visible character, or a
// line break or other control character), or empty when it can. A browser
// shows the title on one line, and an empty <title> is invalid HTML.
std::string PageTitleProblem(std::string_view title);

}  // namespace formwiz::host
