// What the visitor's browser gets back: a small valid HTML page, or JSON when
// the request asks for it. Every text in it is escaped.
#pragma once

#include <string>
#include <string_view>

namespace formwiz::delivery {

struct Answer {
  bool ok = false;        // the submission was accepted
  std::string title;      // "Thank you" / "Your form was not sent"
  std::string message;    // qln_OKMessage, or why it failed; plain text
  std::string back_link;  // the form's page (http or https only), or ""
  int64_t id = 0;         // the submission's number, 0 when none
};

std::string AnswerHtml(const Answer& answer);
std::string AnswerJson(const Answer& answer);

// `raw` as HTML text, fit for an element's content or a quoted attribute
// value: &, <, >, " and ' escaped, invalid UTF-8 and characters an HTML
// document may not hold replaced by U+FFFD.
std::string HtmlText(std::string_view raw);

// True when `accept` names application/json (with q above 0) ahead of, or
// without, text/html.
bool WantsJson(const std::string& accept);

// `referer` when it is an absolute http or https URL without control
// characters, else "".
std::string SafeBackLink(const std::string& referer);

}  // namespace formwiz::delivery
