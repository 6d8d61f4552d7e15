// What a page formwiz did not make shares with the page file: the escaping
// of text, the bytes of a paragraph and the markers around an object. A
// form made in someone else's page is written between the same markers as
// in a page file, so one reader opens it again in either. Internal to the
// host library; the format is told at the top of page.cpp.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "host/page_document.h"

namespace formwiz::host::page_format {

// The start of an object's marker comment.
inline constexpr std::string_view kObjectStart = "<!--formwiz-object ";

// Whether `text` starts as every page file formwiz wrote does, up to its
// generator line: such a file is read as a page file or refused, never
// taken for someone else's page.
bool IsPageFile(std::string_view text);

// `text` with "&", "<" and ">" escaped and nothing else.
void AppendEscaped(std::string_view text, std::string& out);
// The text AppendEscaped wrote as `escaped`; false, with the reason in
// `why`, for anything else (markup, another character reference).
bool Unescape(std::string_view escaped, std::string& text, std::string& why);

// A paragraph as formwiz writes it: <p>TEXT</p> and the line end.
void AppendParagraph(std::string_view text, std::string_view newline,
                     std::string& out);

// An object between its markers, each line ended by `newline`.
void AppendObject(const PageObject& object, std::string_view newline,
                  std::string& out);

// Reads the object whose marker starts at `pos` (at kObjectStart), written
// by AppendObject with `newline`, as an object of `document`. On success
// `pos` is past the end marker's line end; otherwise gives null with a
// one-line reason in `error`, and `pos` is unchanged.
std::shared_ptr<PageObject> ReadObject(std::string_view text, size_t& pos,
                                       std::string_view newline,
                                       std::weak_ptr<PageDocument> document,
                                       std::string& error);

}  // namespace formwiz::host::page_format
