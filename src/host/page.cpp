// The page model and the page file.
//
// The file is one prologue, the blocks in order and one fixed epilogue.
// The prologue is fixed but for the title:
//
//   <!DOCTYPE html> ... <meta name="generator" content="formwiz page 2">
//   <meta name="viewport" ...> <title>TITLE</title> <style>...</style>
//   </head> <body> <main>                      (one element a line)
//
// and each block is
//
//   <p>TEXT</p>
//   <!--formwiz-object progid=B64 name=B64|- data=DATA source=LEN|-
//       picture=B64|- -->            (one line in the file)
//   HTMLSource, LEN bytes exactly, as it is
//   <!--/formwiz-object-->
//
// Paragraph text and the title have &, < and > escaped and nothing else, so
// every byte a person typed (CR LF, invalid UTF-8) comes back. The marker's
// fields are base64, which holds no "-", ">" or space, so no content can end
// the comment or shift a field; the HTML itself is never escaped (a browser
// must show it as the object's HTML) and is found by its length, never by
// looking for the end marker, so an HTMLSource that holds the end marker,
// "-->" or "</script>" reads back unchanged. The end marker is still
// checked, which catches a file whose HTML was edited by hand or whose line
// endings were converted.
//
// The same markers hold the forms formwiz makes in a page it did not write
// (html_page.cpp); there each line of the markers ends as the file's lines
// do ("\r\n" in a CR LF file), so the file keeps one kind of line end.
//
// The stylesheet lays the bundled orbs' forms out (their fw-* classes) for
// phones and desktops, in light and dark colours; it is part of the fixed
// prologue, so a different one is a new version of the file.
//
// Version 1 files (a fixed prologue with the title "Page", no viewport, a
// stylesheet for paragraphs only, no <main>) are still read; they are
// written as version 2, and only when saved: reading never writes.
//
// The reader accepts exactly what the writer writes (or wrote as version 1),
// in one forward pass without backtracking; anything else is refused.
// Hand-editing a paragraph's text or the title stays possible as long as it
// is escaped the same way.
#include "host/page.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <stdexcept>
#include <unordered_set>
#include <utility>

#include "host/base64.h"
#include "host/page_format.h"

namespace formwiz::host {

using page_format::AppendEscaped;
using page_format::kObjectStart;

namespace {

// The generator line is what tells our files, and their versions, from
// other HTML.
constexpr std::string_view kHeadStart =
    "<!DOCTYPE html>\n"
    "<html lang=\"en\">\n"
    "<head>\n"
    "<meta charset=\"utf-8\">\n";
constexpr std::string_view kRestOfHeadV1 =
    "<meta name=\"generator\" content=\"formwiz page 1\">\n"
    "<title>Page</title>\n"
    // Paragraphs keep their line breaks and runs of spaces, as typed.
    "<style>p { white-space: pre-wrap; }</style>\n"
    "</head>\n"
    "<body>\n";
constexpr std::string_view kEpilogueV1 = "</body>\n</html>\n";

constexpr std::string_view kTitleStart =
    "<meta name=\"generator\" content=\"formwiz page 2\">\n"
    "<meta name=\"viewport\" content=\"width=device-width, "
    "initial-scale=1\">\n"
    "<title>";
// Narrow screens (phones) get one column: each prompt above its box; from
// 40rem on, prompts stand beside their boxes. Boxes keep the width their
// size or cols gives, but never more than the column has, so nothing
// scrolls sideways. Classic table forms stack their cells on phones.
constexpr std::string_view kTitleEnd =
    "</title>\n"
    "<style>\n"
    ":root { color-scheme: light dark; --fw-text: #1c1b1f; "
    "--fw-back: #ffffff; --fw-line: #6f6f7a; --fw-accent: #0b57d0; "
    "--fw-on-accent: #ffffff; --fw-error: #b3261e; }\n"
    "@media (prefers-color-scheme: dark) { :root { --fw-text: #e6e1e5; "
    "--fw-back: #1c1b1f; --fw-line: #938f99; --fw-accent: #a8c7fa; "
    "--fw-on-accent: #062e6f; --fw-error: #f2b8b5; } }\n"
    "*, ::before, ::after { box-sizing: border-box; }\n"
    "body { margin: 0 auto; padding: 1rem; max-width: 50rem; "
    "font: 1rem/1.5 system-ui, sans-serif; color: var(--fw-text); "
    "background: var(--fw-back); overflow-wrap: anywhere; }\n"
    "p { white-space: pre-wrap; }\n"
    "input, select, textarea, button { font: inherit; max-width: 100%; }\n"
    "input, select, textarea { min-width: 0; min-height: 2.75rem; "
    "padding: .5rem; color: inherit; background: var(--fw-back); "
    "border: 1px solid var(--fw-line); border-radius: .25rem; }\n"
    "input[type=checkbox], input[type=radio] { width: 1.25rem; "
    "height: 1.25rem; min-height: 0; margin: 0; "
    "accent-color: var(--fw-accent); }\n"
    "input[required], select[required], textarea[required] { "
    "border-left: .25rem solid var(--fw-accent); }\n"
    ":user-invalid { border-color: var(--fw-error); "
    "box-shadow: 0 0 0 1px var(--fw-error); }\n"
    ":focus-visible { outline: 3px solid var(--fw-accent); "
    "outline-offset: 2px; }\n"
    "fieldset { min-width: 0; margin: 0 0 1rem; padding: .5rem 1rem 1rem; "
    "border: 1px solid var(--fw-line); border-radius: .25rem; }\n"
    "legend { padding: 0 .25rem; font-weight: 600; }\n"
    ".fw-field { margin: 0 0 1rem; }\n"
    ".fw-label { display: grid; grid-template-columns: minmax(0, 1fr); "
    "gap: .25rem; justify-items: start; }\n"
    ".fw-prompt { font-weight: 600; }\n"
    ".fw-required { color: var(--fw-error); }\n"
    ".fw-choice label { display: flex; align-items: center; gap: .5rem; "
    "min-height: 2.75rem; }\n"
    ".fw-send, form [type=submit] { min-width: 2.75rem; "
    "min-height: 2.75rem; padding: .5rem 1.5rem; border: 0; "
    "border-radius: .375rem; color: var(--fw-on-accent); "
    "background: var(--fw-accent); font-weight: 600; cursor: pointer; }\n"
    ".qln-trap { position: absolute; left: -10000px; width: 1px; "
    "height: 1px; overflow: hidden; }\n"
    "@media (min-width: 40rem) {\n"
    "  .fw-label { grid-template-columns: 14rem minmax(0, 1fr); "
    "column-gap: 1rem; align-items: baseline; }\n"
    "  .fw-actions { padding-left: 15rem; }\n"
    "}\n"
    "@media (max-width: 39.99rem) {\n"
    "  form table, form tbody, form tr, form td { display: block; }\n"
    "}\n"
    "</style>\n"
    "</head>\n"
    "<body>\n"
    "<main>\n";
constexpr std::string_view kEpilogue = "</main>\n</body>\n</html>\n";
constexpr std::string_view kTitleClose = "</title>\n";
static_assert(kTitleEnd.starts_with(kTitleClose));
constexpr std::string_view kParagraphStart = "<p>";
constexpr std::string_view kParagraphEnd = "</p>\n";
// The object's marker and end marker come without their line ends, which
// are the file's own.
constexpr std::string_view kObjectMarkerEnd = " -->";
constexpr std::string_view kObjectEnd = "<!--/formwiz-object-->";
// Absent property.
constexpr std::string_view kAbsent = "-";

std::string OptionalBase64(const std::optional<std::string>& value) {
  return value ? EncodeBase64(*value) : std::string(kAbsent);
}

// HTMLData by kind. The host may hold any value there, and the component
// reads only its text, so each kind is kept as a kind: "absent" (never
// written), "empty", "null", "s:B64", "n:NUMBER" (shortest text that reads
// back as the same double). An object value cannot go into a file: it is
// kept as "object" and reads back as an object value with nothing behind
// it, which the component treats as it treats any object, as having no
// text.
std::string EncodeData(const std::optional<Variant>& data) {
  if (!data) return "absent";
  switch (data->kind) {
    case Variant::Kind::kEmpty:
      return "empty";
    case Variant::Kind::kNull:
      return "null";
    case Variant::Kind::kObject:
      return "object";
    case Variant::Kind::kString:
      return "s:" + EncodeBase64(data->text);
    case Variant::Kind::kNumber: {
      char buffer[64];
      const auto result =
          std::to_chars(buffer, buffer + sizeof buffer, data->number);
      return "n:" + std::string(buffer, result.ptr);
    }
  }
  return "absent";
}

bool DecodeData(std::string_view text, std::optional<Variant>& data) {
  if (text == "absent") {
    data.reset();
  } else if (text == "empty") {
    data = Variant{};
  } else if (text == "null") {
    data = Variant::Null();
  } else if (text == "object") {
    data = Variant::Object(nullptr);
  } else if (text.starts_with("s:")) {
    std::string s;
    if (!DecodeBase64(text.substr(2), s)) return false;
    data = Variant::String(std::move(s));
  } else if (text.starts_with("n:")) {
    double n = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data() + 2, end, n);
    if (result.ec != std::errc() || result.ptr != end) return false;
    data = Variant::Number(n);
  } else {
    return false;
  }
  return true;
}

}  // namespace

void page_format::AppendObject(const PageObject& object,
                               std::string_view newline, std::string& out) {
  out += kObjectStart;
  out += "progid=" + EncodeBase64(object.prog_id);
  out += " name=" + OptionalBase64(object.display_name);
  out += " data=" + EncodeData(object.html_data);
  out += " source=";
  out += object.html_source ? std::to_string(object.html_source->size())
                            : std::string(kAbsent);
  out += " picture=";
  out += object.html_picture
             ? EncodeBase64(std::string_view(
                   reinterpret_cast<const char*>(object.html_picture->data()),
                   object.html_picture->size()))
             : std::string(kAbsent);
  out += kObjectMarkerEnd;
  out += newline;
  if (object.html_source) out += *object.html_source;
  out += newline;
  out += kObjectEnd;
  out += newline;
}

namespace {

// Thrown inside the reader only; ReadPageFile turns it into its message.
struct Refusal {
  std::string why;
};

// A forward-only reader over the file's bytes, from `pos`, whose object
// markers end their lines with `newline`.
class Reader {
 public:
  Reader(std::string_view text, std::weak_ptr<PageDocument> document,
         size_t pos = 0, std::string_view newline = "\n")
      : text_(text),
        pos_(pos),
        document_(std::move(document)),
        marker_end_(std::string(kObjectMarkerEnd) + std::string(newline)),
        end_marker_(std::string(newline) + std::string(kObjectEnd) +
                    std::string(newline)) {}

  // The blocks; `title` and `version` receive the page's.
  std::vector<PageBlock> Blocks(std::string& title, int& version) {
    std::string_view epilogue = kEpilogue;
    if (!Take(kHeadStart)) {
      throw Refusal{"not a page file written by formwiz (its header differs)"};
    }
    if (Take(kRestOfHeadV1)) {
      version = 1;
      title = kDefaultPageTitle;
      epilogue = kEpilogueV1;
    } else if (Take(kTitleStart)) {
      version = 2;
      title = Escaped(kTitleClose, "the title");
      if (!Take(kTitleEnd.substr(kTitleClose.size()))) {
        Fail("the page's header differs after the title");
      }
    } else {
      throw Refusal{"not a page file written by formwiz (its header differs)"};
    }
    std::vector<PageBlock> blocks;
    while (!Take(epilogue)) {
      if (pos_ == text_.size()) Fail("the file ends before the page does");
      if (Take(kParagraphStart)) {
        blocks.push_back({Escaped(kParagraphEnd, "a paragraph"), nullptr});
      } else if (Take(kObjectStart)) {
        blocks.push_back({{}, Object(true)});
      } else {
        Fail("expected a paragraph, an object or the end of the page");
      }
    }
    if (pos_ != text_.size()) Fail("there is more after the end of the page");
    return blocks;
  }

  // The object whose marker starts here; `marker_read` when its start
  // (kObjectStart) is already read. Leaves the position past it.
  std::shared_ptr<PageObject> Object(bool marker_read) {
    if (!marker_read && !Take(kObjectStart)) Fail("expected an object");
    auto object = std::make_shared<PageObject>(document_);
    const std::string_view prog_id = Field("progid", true);
    if (!DecodeBase64(prog_id, object->prog_id)) {
      Fail("the object's progid is not valid base64");
    }
    object->display_name = OptionalBase64Field("name");
    if (!DecodeData(Field("data"), object->html_data)) {
      Fail("the object's data is not understood");
    }
    const std::string_view length_text = Field("source");
    std::optional<size_t> length;
    if (length_text != kAbsent) {
      size_t n = 0;
      const char* end = length_text.data() + length_text.size();
      const auto result = std::from_chars(length_text.data(), end, n);
      if (result.ec != std::errc() || result.ptr != end ||
          std::to_string(n) != length_text) {
        Fail("the object's source length is not a number");
      }
      length = n;
    }
    if (const auto picture = OptionalBase64Field("picture")) {
      object->html_picture.emplace(picture->begin(), picture->end());
    }
    if (!Take(marker_end_)) Fail("the object marker is not closed");
    if (length) {
      if (*length > text_.size() - pos_) Fail("the object's HTML is cut short");
      object->html_source = std::string(text_.substr(pos_, *length));
      pos_ += *length;
    }
    if (!Take(end_marker_)) {
      Fail("the object's HTML does not end where its marker says");
    }
    return object;
  }

  size_t Position() const { return pos_; }

 private:
  [[noreturn]] void Fail(const std::string& why) const {
    throw Refusal{"damaged at byte " + std::to_string(pos_) + ": " + why};
  }

  bool Take(std::string_view token) {
    if (!text_.substr(pos_).starts_with(token)) return false;
    pos_ += token.size();
    return true;
  }

  // Text escaped as AppendEscaped does, up to and past `end`.
  std::string Escaped(std::string_view end, const std::string& what) {
    const size_t markup = text_.find('<', pos_);
    if (markup == std::string_view::npos) Fail(what + " is not closed");
    std::string text;
    std::string why;
    if (!page_format::Unescape(text_.substr(pos_, markup - pos_), text, why)) {
      Fail(why + " in " + what);
    }
    pos_ = markup;
    if (!Take(end)) Fail("markup inside " + what);
    return text;
  }

  // The value of `key=` up to the next space, which stays unread.
  std::string_view Field(std::string_view key, bool first = false) {
    if (!first && !Take(" ")) Fail("the object marker is cut short");
    if (!Take(key) || !Take("=")) {
      Fail("the object marker lacks \"" + std::string(key) + "\"");
    }
    const size_t end = text_.find(' ', pos_);
    if (end == std::string_view::npos) {
      Fail("the file ends inside an object marker");
    }
    const std::string_view value = text_.substr(pos_, end - pos_);
    pos_ = end;
    return value;
  }

  std::optional<std::string> OptionalBase64Field(std::string_view key) {
    const std::string_view value = Field(key);
    if (value == kAbsent) return std::nullopt;
    std::string bytes;
    if (!DecodeBase64(value, bytes)) {
      Fail("the object's " + std::string(key) + " is not valid base64");
    }
    return bytes;
  }

  std::string_view text_;
  size_t pos_ = 0;
  std::weak_ptr<PageDocument> document_;
  std::string marker_end_;
  std::string end_marker_;
};

}  // namespace

bool page_format::IsPageFile(std::string_view text) {
  // Every version's generator line starts so, right after the fixed start.
  constexpr std::string_view kGenerator =
      "<meta name=\"generator\" content=\"formwiz page ";
  return text.starts_with(kHeadStart) &&
         text.substr(kHeadStart.size()).starts_with(kGenerator);
}

void page_format::AppendEscaped(std::string_view text, std::string& out) {
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      default:
        out += c;
    }
  }
}

bool page_format::Unescape(std::string_view escaped, std::string& text,
                           std::string& why) {
  std::string out;
  for (size_t i = 0; i < escaped.size();) {
    const std::string_view rest = escaped.substr(i);
    if (rest[0] == '<' || rest[0] == '>') {
      why = std::string("an unescaped \"") + rest[0] + "\"";
      return false;
    }
    if (rest[0] != '&') {
      out += rest[0];
      ++i;
    } else if (rest.starts_with("&amp;")) {
      out += '&';
      i += 5;
    } else if (rest.starts_with("&lt;") || rest.starts_with("&gt;")) {
      out += rest[1] == 'l' ? '<' : '>';
      i += 4;
    } else {
      why = "an unknown character reference";
      return false;
    }
  }
  text = std::move(out);
  return true;
}

void page_format::AppendParagraph(std::string_view text,
                                  std::string_view newline, std::string& out) {
  out += kParagraphStart;
  AppendEscaped(text, out);
  out += "</p>";
  out += newline;
}

std::shared_ptr<PageObject> page_format::ReadObject(
    std::string_view text, size_t& pos, std::string_view newline,
    std::weak_ptr<PageDocument> document, std::string& error) {
  try {
    Reader reader(text, std::move(document), pos, newline);
    auto object = reader.Object(false);
    pos = reader.Position();
    return object;
  } catch (const Refusal& refusal) {
    error = refusal.why;
    return nullptr;
  }
}

Page::Page() : document(std::make_shared<PageDocument>()) {}

size_t Page::AdoptNewObjects(size_t position) {
  std::unordered_set<const PageObject*> placed;
  for (const PageBlock& block : blocks) placed.insert(block.object.get());
  position = std::min(position, blocks.size());
  size_t adopted = 0;
  for (const auto& object : document->objects) {
    if (placed.contains(object.get())) continue;
    blocks.insert(blocks.begin() + static_cast<ptrdiff_t>(position + adopted),
                  {{}, object});
    ++adopted;
  }
  return adopted;
}

void Page::DeleteBlock(size_t index) {
  // Callers check the index against what the person can see; a bad one here
  // is a bug, not input.
  TakeBlock(index);
}

PageBlock Page::TakeBlock(size_t index) {
  if (index >= blocks.size()) throw std::out_of_range("no such page block");
  PageBlock block = std::move(blocks[index]);
  blocks.erase(blocks.begin() + static_cast<ptrdiff_t>(index));
  if (block.object) std::erase(document->objects, block.object);
  return block;
}

void Page::InsertBlock(size_t index, PageBlock block) {
  if (index > blocks.size()) throw std::out_of_range("no such page position");
  if (block.object) {
    // The document keeps its objects in page order: before the first object
    // of a later block.
    auto at = document->objects.end();
    for (size_t i = index; i < blocks.size(); ++i) {
      if (!blocks[i].object) continue;
      const auto found = std::find(document->objects.begin(),
                                   document->objects.end(), blocks[i].object);
      if (found != document->objects.end()) {
        at = found;
        break;
      }
    }
    document->objects.insert(at, block.object);
  }
  blocks.insert(blocks.begin() + static_cast<ptrdiff_t>(index),
                std::move(block));
}

void Page::MoveBlock(size_t from, size_t to) {
  if (from >= blocks.size() || to >= blocks.size()) {
    throw std::out_of_range("no such page block");
  }
  InsertBlock(to, TakeBlock(from));
}

std::string WritePageFile(const Page& page) {
  std::string out(kHeadStart);
  out += kTitleStart;
  AppendEscaped(page.title, out);
  out += kTitleEnd;
  for (const PageBlock& block : page.blocks) {
    if (block.object) {
      page_format::AppendObject(*block.object, "\n", out);
    } else {
      page_format::AppendParagraph(block.text, "\n", out);
    }
  }
  out += kEpilogue;
  return out;
}

bool ReadPageFile(std::string_view text, Page& page, std::string& error,
                  int* version) {
  if (text.size() > kMaxPageFileSize) {
    error = "too large for a page file (" + std::to_string(text.size()) +
            " bytes, at most " + std::to_string(kMaxPageFileSize) + ")";
    return false;
  }
  if (!page.document) page.document = std::make_shared<PageDocument>();
  std::vector<PageBlock> blocks;
  std::string title;
  int read_version = 0;
  try {
    // The new objects belong to the page's own document from the start, so
    // faults and roles set on it keep working; they join its list only once
    // the whole file has been read.
    blocks = Reader(text, page.document).Blocks(title, read_version);
  } catch (const Refusal& refusal) {
    error = refusal.why;
    return false;
  }
  std::vector<std::shared_ptr<PageObject>> objects;
  for (const PageBlock& block : blocks) {
    if (block.object) objects.push_back(block.object);
  }
  page.document->objects = std::move(objects);
  page.blocks = std::move(blocks);
  page.title = std::move(title);
  page.frame.reset();
  if (version != nullptr) *version = read_version;
  return true;
}

std::string PageTitleProblem(std::string_view title) {
  bool visible = false;
  for (const char c : title) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      return "a title is one line, without control characters";
    }
    // Bytes beyond ASCII are letters of some script here.
    if (c != ' ') visible = true;
  }
  if (!visible) return "a page needs a title with something to read in it";
  return "";
}

}  // namespace formwiz::host
