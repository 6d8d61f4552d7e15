#include "delivery/mail_message.h"

#include <glib.h>
#include <gmime/gmime.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <set>

#include "delivery/address.h"
#include "delivery/csv.h"
#include "delivery/text_util.h"

namespace formwiz::delivery {
namespace {

constexpr size_t kMaxSubjectCharacters = 200;
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

// A value as the mail shows it: valid UTF-8, line ends as LF (GMime writes
// them as CR LF), and no control character but TAB and LF, so that nothing
// a visitor sent can steer a terminal or a mail reader.
std::string MailText(std::string_view value) {
  const std::string valid = text::ValidUtf8(value);
  std::string out;
  out.reserve(valid.size());
  for (size_t i = 0; i < valid.size(); ++i) {
    const unsigned char c = valid[i];
    if (c == '\r') {
      out += '\n';
      if (i + 1 < valid.size() && valid[i + 1] == '\n') ++i;
    } else if (c == '\n' || c == '\t' || !text::IsAsciiControl(c)) {
      out += static_cast<char>(c);
    } else {
      out += kReplacement;
    }
  }
  return out;
}

// A name on one line: its line breaks become spaces as well.
std::string MailName(std::string_view name) {
  std::string out = MailText(name);
  for (char& c : out) {
    if (c == '\n' || c == '\t') c = ' ';
  }
  return out;
}

template <typename T>
struct ObjectUnref {
  void operator()(T* object) const { g_object_unref(object); }
};
template <typename T>
using Ref = std::unique_ptr<T, ObjectUnref<T>>;

// A text part whose bytes are `content_text` exactly, labelled UTF-8, in the
// transfer encoding GMime finds best for 7-bit transport (quoted-printable
// or base64 when the text is not short ASCII lines).
// g_mime_text_part_set_text is not used: it re-encodes into the "best"
// charset, often Latin-1.
Ref<GMimePart> TextPart(const char* subtype, const std::string& content_text) {
  Ref<GMimePart> part(g_mime_part_new_with_type("text", subtype));
  g_mime_object_set_content_type_parameter(GMIME_OBJECT(part.get()), "charset",
                                           "utf-8");
  Ref<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(
      content_text.data(), content_text.size()));
  Ref<GMimeDataWrapper> content(g_mime_data_wrapper_new_with_stream(
      stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
  g_mime_part_set_content(part.get(), content.get());
  g_mime_part_set_content_encoding(
      part.get(), g_mime_part_get_best_content_encoding(
                      part.get(), GMIME_ENCODING_CONSTRAINT_7BIT));
  return part;
}

std::string Bracketless(std::string_view message_id) {
  if (message_id.size() >= 2 && message_id.front() == '<' &&
      message_id.back() == '>') {
    message_id = message_id.substr(1, message_id.size() - 2);
  }
  return text::StripControls(message_id);
}

// Text that a mail reader would take for an RFC 2047 encoded word ("=?"
// ... "?=") is written as plain ASCII by GMime, and decoded by the reader:
// "=?utf-8?q?=0D=0A?=" would show as a line break. "=?" becomes "= ?", so
// the text reads back as it was sent, less that one space.
std::string NoEncodedWords(std::string text) {
  for (size_t at = 0; (at = text.find("=?", at)) != std::string::npos;) {
    text.insert(at + 1, " ");
  }
  return text;
}

// Optional headers that help the owner: GMime encodes and folds the text;
// control characters are gone before that, and the length is bounded so
// that even a value with no space to fold at stays within a header line.
void SetInfoHeader(GMimeObject* object, const char* name,
                   const std::string& value) {
  constexpr size_t kMaxInfoBytes = 900;
  const std::string clean =
      NoEncodedWords(text::CutUtf8(text::StripControls(value), kMaxInfoBytes));
  if (!clean.empty()) {
    g_mime_object_set_header(object, name, clean.c_str(), "utf-8");
  }
}

}  // namespace

std::string HumanReadableBody(const std::vector<store::Field>& fields) {
  std::string body;
  for (const store::Field& field : fields) {
    if (!body.empty()) body += '\n';
    body += MailName(field.name) + ":";
    const std::string value = MailText(field.value);
    // Each line of the value on its own line, the ones after the first
    // indented under the name.
    size_t start = 0;
    bool first = true;
    while (start <= value.size()) {
      const size_t end = value.find('\n', start);
      const std::string_view line =
          std::string_view(value).substr(start, end - start);
      if (first) {
        if (!line.empty()) body += " " + std::string(line);
        first = false;
      } else {
        body += "\n  " + std::string(line);
      }
      if (end == std::string::npos) break;
      start = end + 1;
    }
    body += '\n';
  }
  return body;
}

std::string CommaSeparatedBody(const std::vector<store::Field>& fields) {
  std::vector<std::string> names, values;
  for (const store::Field& field : fields) {
    names.push_back(MailName(field.name));
    values.push_back(MailText(field.value));
  }
  return CsvRecord(names) + CsvRecord(values);
}

bool IsAddressFieldName(const std::string& name) {
  // Compared without case and without the separators people put in them
  // ("E-mail", "email_address", "Your Email").
  static const std::set<std::string> kNames = {"email",     "emailaddress",
                                               "youremail", "youremailaddress",
                                               "mail",      "replyto"};
  std::string key;
  for (unsigned char c : name) {
    if (c == ' ' || c == '-' || c == '_' || c == '.') continue;
    key += static_cast<char>(g_ascii_tolower(c));
  }
  return kNames.count(key) > 0;
}

std::optional<std::string> ReplyToFrom(
    const std::vector<store::Field>& fields) {
  for (const store::Field& field : fields) {
    if (!IsAddressFieldName(field.name)) continue;
    if (auto address = ParseSingleAddress(field.value)) return address;
  }
  return std::nullopt;
}

std::string CleanSubject(const std::string& subject,
                         const std::string& default_subject) {
  const std::string valid = text::ValidUtf8(subject);
  std::string spaced;
  for (const char* p = valid.c_str(); *p != '\0'; p = g_utf8_next_char(p)) {
    const gunichar c = g_utf8_get_char(p);
    if (g_unichar_iscntrl(c)) {
      spaced += ' ';
    } else {
      spaced.append(p, g_utf8_next_char(p) - p);
    }
  }
  spaced = NoEncodedWords(std::move(spaced));
  const size_t first = spaced.find_first_not_of(' ');
  if (first == std::string::npos) {
    return default_subject.empty() ? "Form submission"
                                   : CleanSubject(default_subject, "");
  }
  spaced = spaced.substr(first, spaced.find_last_not_of(' ') - first + 1);
  if (g_utf8_strlen(spaced.c_str(), -1) >
      static_cast<glong>(kMaxSubjectCharacters)) {
    const char* end =
        g_utf8_offset_to_pointer(spaced.c_str(), kMaxSubjectCharacters);
    spaced.resize(end - spaced.c_str());
    spaced.resize(spaced.find_last_not_of(' ') + 1);
  }
  return spaced;
}

std::string ComposeMail(const MailInput& input) {
  InitMime();
  Ref<GMimeMessage> message(g_mime_message_new(TRUE));
  GMimeObject* object = GMIME_OBJECT(message.get());
  // The addresses come as bare addr-specs; GMime quotes whatever needs it.
  g_mime_message_add_mailbox(message.get(), GMIME_ADDRESS_TYPE_FROM, nullptr,
                             text::StripControls(input.from).c_str());
  g_mime_message_add_mailbox(message.get(), GMIME_ADDRESS_TYPE_TO, nullptr,
                             text::StripControls(input.to).c_str());
  if (auto reply_to = ReplyToFrom(input.fields)) {
    g_mime_message_add_mailbox(message.get(), GMIME_ADDRESS_TYPE_REPLY_TO,
                               nullptr, reply_to->c_str());
  }
  const std::string subject =
      CleanSubject(input.subject, input.default_subject);
  g_mime_message_set_subject(message.get(), subject.c_str(), "utf-8");
  GDateTime* date = g_date_time_new_from_unix_utc(input.received_at);
  if (date == nullptr) date = g_date_time_new_from_unix_utc(0);
  g_mime_message_set_date(message.get(), date);
  g_date_time_unref(date);
  const std::string id = Bracketless(input.message_id);
  if (!id.empty()) g_mime_message_set_message_id(message.get(), id.c_str());
  SetInfoHeader(object, "X-Formwiz-Page", input.page);
  SetInfoHeader(object, "X-Formwiz-Client", input.client);

  if (input.comma_separated) {
    const std::string csv = CommaSeparatedBody(input.fields);
    Ref<GMimeMultipart> mixed(g_mime_multipart_new_with_subtype("mixed"));
    Ref<GMimePart> body_part = TextPart("plain", csv);
    Ref<GMimePart> attachment = TextPart("csv", csv);
    g_mime_part_set_filename(attachment.get(), "submission.csv");
    g_mime_multipart_add(mixed.get(), GMIME_OBJECT(body_part.get()));
    g_mime_multipart_add(mixed.get(), GMIME_OBJECT(attachment.get()));
    g_mime_message_set_mime_part(message.get(), GMIME_OBJECT(mixed.get()));
  } else {
    Ref<GMimePart> body_part =
        TextPart("plain", HumanReadableBody(input.fields));
    g_mime_message_set_mime_part(message.get(), GMIME_OBJECT(body_part.get()));
  }

  GMimeFormatOptions* options = g_mime_format_options_new();
  g_mime_format_options_set_newline_format(options, GMIME_NEWLINE_FORMAT_DOS);
  char* raw = g_mime_object_to_string(object, options);
  g_mime_format_options_free(options);
  std::string out(raw != nullptr ? raw : "");
  g_free(raw);
  return out;
}

void InitMime() {
  static std::once_flag once;
  std::call_once(once, [] { g_mime_init(); });
}

}  // namespace formwiz::delivery
