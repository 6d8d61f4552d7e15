// A page as the editor holds it: paragraphs of text and page objects in
// order, over the PageDocument that holds the objects; and the page file,
// plain HTML that a browser shows as it is and that the editor reads back.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/page_document.h"

namespace formwiz::host {

// One block of a page: a page object when `object` is set; else a block of
// a page formwiz did not make when `source` is set; else a paragraph of
// text.
struct PageBlock {
  std::string text;
  std::shared_ptr<PageObject> object;
  // A block of someone else's page: its bytes exactly as they were read,
  // followed by whatever stood between it and the next block (white space,
  // comments). Written back as it is, wherever the block goes.
  std::optional<std::string> source = std::nullopt;
  // A paragraph or object read from someone else's page: the bytes that
  // followed what formwiz writes for it, up to the next block (white space,
  // comments), written after it wherever it goes. Empty for a new block.
  std::string gap = {};
};

// What stands around the blocks of a page that formwiz did not make (its
// head, the body's start tag, what follows the body), kept byte for byte.
struct ForeignFrame {
  // Everything before the first block, and after the last.
  std::string before;
  std::string after;
  // The file's line end ("\n" or "\r\n"), for the blocks formwiz adds.
  std::string newline = "\n";
  // Where the text of the page's <title> stands in `before` (offset and
  // length), when the page has one; and that text as read, so that a page
  // whose title nobody changed is written with the very same bytes.
  std::optional<std::pair<size_t, size_t>> title_range;
  std::string title_as_read;
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
  // Set for a page read from a file formwiz did not write: it is written
  // back in its own shape, not as a page file.
  std::optional<ForeignFrame> frame;

  // Places the objects that the component appended to the document and no
  // block holds yet at `position` (an index into blocks, clamped to the
  // end), in their order. Gives how many were placed.
  size_t AdoptNewObjects(size_t position);
  // Removes a block; an object block also leaves the document.
  void DeleteBlock(size_t index);
  // Removes a block and gives it, object and all, so that it can be put
  // back (undo) with InsertBlock.
  PageBlock TakeBlock(size_t index);
  // Puts a block at `index` (at most the block count); its object, if any,
  // joins the document in page order.
  void InsertBlock(size_t index, PageBlock block);
  // Moves the block at `from` so that it ends up at index `to`.
  void MoveBlock(size_t from, size_t to);
};

// The largest page file ReadPageFile (and ReadPage) takes. Far beyond any page
// a person makes (a picture is a few KiB); a bigger input is refused unread.
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

// Reads a page the person has: a page file, or any UTF-8 HTML page (whole
// document or fragment), whose top-level body children become blocks and
// whose other bytes are kept in `page.frame`. A file in another encoding,
// or one that is not HTML, gives false with a one-line reason and leaves
// `page` as it was. A page file reads as ReadPageFile reads it.
//
// Of someone else's page, a top-level object that formwiz wrote (between
// its markers) is an object block again, and a top-level <p> written
// exactly as formwiz writes a paragraph is a paragraph; every other block
// has `source`. `page.title` is the text of the head's <title> (white space
// trimmed and collapsed, as a browser shows it), or empty for a page
// without one. The rules are told at the top of html_page.cpp.
//
// A file with the page file's generator line that the page file's reader
// refuses (edited by hand, its line ends converted, cut short) is read as
// any other page. When some of the forms formwiz wrote in it no longer
// read as forms, `changed`, when given, receives the page file reader's
// reason and how many, so that the person can be told before working on
// it; otherwise it is emptied.
bool ReadPage(std::string_view text, Page& page, std::string& error,
              std::string* changed = nullptr);
// Writes a page back: a page file, or for a page with a frame the frame
// around its blocks, so that a page read and written unchanged is the same
// bytes. The title's bytes change only when `page.title` did.
std::string WritePage(const Page& page);

// Whether a page can hold the title the person gives it. A page read from
// a file without <title> (a fragment, such as a template partial, whose
// title comes from the page that includes it) cannot: WritePage writes no
// title for it, so the editor should show its title field disabled, saying
// so, and `formwiz page title` refuses to set one.
bool CanSetTitle(const Page& page);

// Why `title` cannot be a page's title (it has no visible character, or a
// line break or other control character), or empty when it can. A browser
// shows the title on one line, and an empty <title> is invalid HTML.
std::string PageTitleProblem(std::string_view title);

}  // namespace formwiz::host
