#include "delivery/answer_page.h"

#include <glib.h>
#include <gmime/gmime.h>

#include <nlohmann/json.hpp>
#include <string_view>

#include "delivery/mail_message.h"
#include "delivery/text_util.h"

namespace formwiz::delivery {
namespace {

constexpr size_t kMaxLinkBytes = 2048;

// Code points an HTML document may not hold as text (controls other than
// white space, and noncharacters) become U+FFFD, so that the page stays
// valid whatever the form's author or visitor typed.
bool AllowedInHtml(gunichar c) {
  if (c == '\t' || c == '\n' || c == '\r') return true;
  if (g_unichar_iscntrl(c)) return false;
  if (c >= 0xFDD0 && c <= 0xFDEF) return false;
  return (c & 0xFFFE) != 0xFFFE;
}

// The q value of one media range's parameters, 1 when absent.
double Quality(GMimeContentType* type) {
  const char* q = g_mime_content_type_get_parameter(type, "q");
  if (q == nullptr) return 1.0;
  char* end = nullptr;
  const double value = g_ascii_strtod(q, &end);
  if (end == q || *end != '\0' || !(value >= 0.0 && value <= 1.0)) return 0.0;
  return value;
}

}  // namespace

std::string HtmlText(std::string_view raw) {
  const std::string valid = text::ValidUtf8(raw);
  std::string out;
  out.reserve(valid.size());
  for (const char* p = valid.c_str(); *p != '\0'; p = g_utf8_next_char(p)) {
    const gunichar c = g_utf8_get_char(p);
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
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        if (AllowedInHtml(c)) {
          out.append(p, g_utf8_next_char(p) - p);
        } else {
          out += "\xEF\xBF\xBD";
        }
    }
  }
  return out;
}

std::string AnswerHtml(const Answer& answer) {
  const std::string title =
      HtmlText(answer.title.empty() ? std::string("Form") : answer.title);
  std::string html =
      "<!DOCTYPE html>\n"
      "<html lang=\"en\">\n"
      "<head>\n"
      "<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, "
      "initial-scale=1\">\n"
      "<title>" +
      title +
      "</title>\n"
      "<style>body{font-family:sans-serif;max-width:40em;margin:2em auto;"
      "padding:0 1em;line-height:1.5}.message{white-space:pre-line}</style>\n"
      "</head>\n"
      "<body>\n"
      "<main>\n"
      "<h1>" +
      title +
      "</h1>\n"
      "<p class=\"message\">" +
      HtmlText(answer.message) + "</p>\n";
  const std::string link = SafeBackLink(answer.back_link);
  if (!link.empty()) {
    html += "<p><a href=\"" + HtmlText(link) + "\">Back to the form</a></p>\n";
  }
  html += "</main>\n</body>\n</html>\n";
  return html;
}

std::string AnswerJson(const Answer& answer) {
  const nlohmann::json json = {{"ok", answer.ok},
                               {"id", answer.id},
                               {"title", answer.title},
                               {"message", answer.message}};
  // Invalid UTF-8 would make dump() throw; it becomes U+FFFD instead.
  return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

bool WantsJson(const std::string& accept) {
  if (accept.empty() || accept.size() > 4096 || text::HasAsciiControl(accept)) {
    return false;
  }
  InitMime();
  // An Accept header is a comma-separated list of media ranges (RFC 9110,
  // 12.5.1); each range with its parameters is parsed by GMime.
  double json_q = 0, html_q = 0;
  size_t json_at = 0, html_at = 0, position = 0;
  std::string_view rest(accept);
  while (!rest.empty()) {
    const size_t comma = rest.find(',');
    const std::string range(rest.substr(0, comma));
    rest = comma == std::string_view::npos ? std::string_view()
                                           : rest.substr(comma + 1);
    ++position;
    if (range.find_first_not_of(" \t") == std::string::npos) continue;
    GMimeContentType* type = g_mime_content_type_parse(nullptr, range.c_str());
    if (type == nullptr) continue;
    const double q = Quality(type);
    if (g_mime_content_type_is_type(type, "application", "json") &&
        json_at == 0) {
      json_q = q;
      json_at = position;
    } else if (g_mime_content_type_is_type(type, "text", "html") &&
               html_at == 0) {
      html_q = q;
      html_at = position;
    }
    g_object_unref(type);
  }
  if (json_at == 0 || json_q <= 0) return false;
  if (html_at == 0 || html_q <= 0) return true;
  return json_q > html_q || (json_q == html_q && json_at < html_at);
}

std::string SafeBackLink(const std::string& referer) {
  if (referer.empty() || referer.size() > kMaxLinkBytes) return "";
  // Only the characters RFC 3986 lets a URL hold (browsers send the rest
  // %-encoded); GLib's parser is lenient about them, an HTML checker not.
  for (unsigned char c : referer) {
    if (c <= ' ' || c >= 0x7f ||
        std::string_view("\"<>\\^`{|}").find(static_cast<char>(c)) !=
            std::string_view::npos) {
      return "";
    }
  }
  GError* error = nullptr;
  GUri* uri = g_uri_parse(referer.c_str(), G_URI_FLAGS_NONE, &error);
  if (uri == nullptr) {
    g_error_free(error);
    return "";
  }
  const char* scheme = g_uri_get_scheme(uri);
  const char* host = g_uri_get_host(uri);
  const bool ok = scheme != nullptr &&
                  (g_ascii_strcasecmp(scheme, "http") == 0 ||
                   g_ascii_strcasecmp(scheme, "https") == 0) &&
                  host != nullptr && host[0] != '\0';
  g_uri_unref(uri);
  return ok ? referer : "";
}

}  // namespace formwiz::delivery
