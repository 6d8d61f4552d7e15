// What delivery_fuzz asks of one input, a posted body: it is decoded as a
// form (GLib), read as a formwiz form, composed into both kinds of mail
// (GMime) and into the answer page, and the mail is parsed back with GMime.
// Whatever the visitor sent, no header line may come from it except through
// GMime's encoders, and the answer holds no markup of the visitor's. The
// handler's tests replay fuzz/regressions/delivery_fuzz/ through the same
// check.
#pragma once

#include <gmime/gmime.h>

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <string_view>

#include "delivery/address.h"
#include "delivery/answer_page.h"
#include "delivery/form_decode.h"
#include "delivery/mail_message.h"
#include "delivery/posted_form.h"

namespace formwiz::fuzz {
namespace delivery_checks {

using namespace formwiz::delivery;

inline std::string One(InternetAddressList* list) {
  if (list == nullptr || internet_address_list_length(list) != 1) return "";
  InternetAddress* address = internet_address_list_get_address(list, 0);
  if (!INTERNET_ADDRESS_IS_MAILBOX(address)) return "";
  return internet_address_mailbox_get_idn_addr(
      INTERNET_ADDRESS_MAILBOX(address));
}

// What is wrong with the text of a composed mail, whatever went into it:
// only CR LF line ends, and a header block of the headers ComposeMail
// writes, each line printable ASCII (RFC 2047 did its work) within 998
// bytes.
inline std::string CheckMailText(const std::string& raw) {
  for (size_t i = 0; i < raw.size(); ++i) {
    if (raw[i] == '\r' && (i + 1 == raw.size() || raw[i + 1] != '\n')) {
      return "a lone CR in the mail";
    }
    if (raw[i] == '\n' && (i == 0 || raw[i - 1] != '\r')) {
      return "a bare LF in the mail";
    }
  }
  static const std::set<std::string_view> kKnown = {"Date",
                                                    "From",
                                                    "To",
                                                    "Reply-To",
                                                    "Subject",
                                                    "Message-Id",
                                                    "MIME-Version",
                                                    "Content-Type",
                                                    "Content-Transfer-Encoding",
                                                    "X-Formwiz-Page",
                                                    "X-Formwiz-Client"};
  const size_t end = raw.find("\r\n\r\n");
  if (end == std::string::npos) return "no end of the headers";
  std::string_view headers(raw.data(), end + 2);
  while (!headers.empty()) {
    const size_t eol = headers.find("\r\n");
    const std::string_view line = headers.substr(0, eol);
    headers.remove_prefix(eol + 2);
    if (line.size() > 998) return "a header line over 998 bytes";
    for (unsigned char c : line) {
      if ((c < 0x20 && c != '\t') || c >= 0x7f) {
        return "a raw control or 8-bit byte in a header: " + std::string(line);
      }
    }
    if (line.empty()) return "an empty header line";
    if (line[0] == ' ' || line[0] == '\t') continue;  // folded
    if (!kKnown.count(line.substr(0, line.find(':')))) {
      return "an unexpected header line: " + std::string(line);
    }
  }
  return "";
}

// "=?charset?B|Q?text?=", an RFC 2047 encoded word.
inline bool IsEncodedWord(std::string_view token) {
  if (token.size() < 8 || !token.starts_with("=?") || !token.ends_with("?=")) {
    return false;
  }
  const size_t mark = token.find('?', 2);
  if (mark == std::string_view::npos || mark + 3 > token.size() - 2 ||
      token[mark + 2] != '?' ||
      std::string_view("BbQq").find(token[mark + 1]) ==
          std::string_view::npos) {
    return false;
  }
  return token.find('?', mark + 3) == token.size() - 2;
}

// The Subject as a mail reader shows it. GMime's own reader joins the
// payloads of adjacent encoded words before decoding them, which loses text
// when the first is base64 with padding (GMime 3.2); readers decode each
// word alone, as this does, with GMime: the unfolded value is taken word by
// word, the space between two encoded words dropped (RFC 2047, 6.2), any
// other kept. No plain word of the visitor's begins with "=?"
// (CleanSubject), so none is taken for an encoded word.
inline std::string ReaderSubject(GMimeMessage* message) {
  GMimeHeaderList* list = g_mime_object_get_header_list(GMIME_OBJECT(message));
  GMimeHeader* header = g_mime_header_list_get_header(list, "Subject");
  if (header == nullptr) return "";
  std::string raw = g_mime_header_get_raw_value(header);
  for (size_t at; (at = raw.find("\r\n")) != std::string::npos;) {
    raw.erase(at, 2);
  }
  std::string_view rest(raw);
  rest.remove_prefix(std::min(rest.find_first_not_of(" \t"), rest.size()));
  std::string shown;
  bool after_encoded = false;
  while (!rest.empty()) {
    const size_t word = std::min(rest.find_first_not_of(" \t"), rest.size());
    const std::string_view space = rest.substr(0, word);
    rest.remove_prefix(word);
    if (rest.empty()) {
      shown += space;
      break;
    }
    const size_t end = std::min(rest.find_first_of(" \t"), rest.size());
    const std::string token(rest.substr(0, end));
    rest.remove_prefix(end);
    const bool encoded = IsEncodedWord(token);
    if (!(encoded && after_encoded)) shown += space;
    if (encoded) {
      char* decoded = g_mime_utils_header_decode_text(nullptr, token.c_str());
      shown += decoded;
      g_free(decoded);
    } else {
      shown += token;
    }
    after_encoded = encoded;
  }
  return shown;
}

// What is wrong with the composed `raw` mail for `input`, or "".
inline std::string CheckMail(const std::string& raw, const MailInput& input) {
  if (std::string problem = CheckMailText(raw); !problem.empty()) {
    return problem;
  }

  GMimeStream* stream =
      g_mime_stream_mem_new_with_buffer(raw.data(), raw.size());
  GMimeParser* parser = g_mime_parser_new_with_stream(stream);
  GMimeMessage* message = g_mime_parser_construct_message(parser, nullptr);
  g_object_unref(parser);
  g_object_unref(stream);
  if (message == nullptr) return "GMime cannot read the mail back";
  const std::string problem = [&]() -> std::string {
    // Every header as a reader decodes it stays on one line.
    GMimeHeaderList* list =
        g_mime_object_get_header_list(GMIME_OBJECT(message));
    for (int i = 0; i < g_mime_header_list_get_count(list); ++i) {
      GMimeHeader* header = g_mime_header_list_get_header_at(list, i);
      const char* value = g_mime_header_get_value(header);
      if (value != nullptr && std::string_view(value).find_first_of("\r\n") !=
                                  std::string_view::npos) {
        return std::string(g_mime_header_get_name(header)) +
               " reads back with a line break";
      }
    }
    if (One(g_mime_message_get_from(message)) != input.from) {
      return "From is not the sender";
    }
    if (One(g_mime_message_get_to(message)) != input.to) {
      return "To is not the recipient";
    }
    if (One(g_mime_message_get_reply_to(message)) !=
        ReplyToFrom(input.fields).value_or("")) {
      return "Reply-To is not the address field's address";
    }
    const std::string subject = ReaderSubject(message);
    if (subject != CleanSubject(input.subject, input.default_subject)) {
      return "the Subject reads back as \"" + subject + "\"";
    }
    return "";
  }();
  g_object_unref(message);
  return problem;
}

inline size_t Count(const std::string& text, char c) {
  return std::count(text.begin(), text.end(), c);
}

inline std::string CheckPost(std::string_view body) {
  const Decoded decoded = DecodeUrlEncoded(body, Limits{});
  if (!decoded.ok) {
    if (decoded.status != 400 && decoded.status != 413) {
      return "a refusal with status " + std::to_string(decoded.status);
    }
    return "";
  }
  const PostedForm form = ReadPostedForm(decoded.pairs);
  MailInput input;
  input.from = "forms@example.net";
  // A recipient the way the handler has one: parsed, or the site's own.
  input.to = ParseSingleAddress(form.email_to).value_or("owner@example.org");
  input.subject = form.subject;
  input.fields = form.fields;
  input.page = form.ok_message;
  input.client = form.email_to;
  input.received_at = 1700000000;
  input.message_id = "<0123456789abcdef@example.net>";
  for (bool comma_separated : {false, true}) {
    input.comma_separated = comma_separated;
    const std::string problem = CheckMail(ComposeMail(input), input);
    if (!problem.empty()) {
      return (comma_separated ? "comma-separated: " : "human-readable: ") +
             problem;
    }
  }

  // The answer's '<' come from its template only.
  const std::string link = SafeBackLink(form.email_to);
  const std::string html =
      AnswerHtml({true, form.subject, form.ok_message, link, 1});
  const std::string plain = AnswerHtml(
      {true, "t", "m", link.empty() ? "" : "http://example.org/", 1});
  if (Count(html, '<') != Count(plain, '<')) {
    return "the answer page holds markup from the form";
  }
  return "";
}

}  // namespace delivery_checks

using delivery_checks::CheckPost;

}  // namespace formwiz::fuzz
