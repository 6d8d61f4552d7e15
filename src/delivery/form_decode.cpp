#include "delivery/form_decode.h"

#include <glib.h>
#include <gmime/gmime.h>

#include <cstring>
#include <memory>

#include "delivery/mail_message.h"

namespace formwiz::delivery {
namespace {

Decoded Refuse(int status, std::string error) {
  Decoded decoded;
  decoded.status = status;
  decoded.error = std::move(error);
  return decoded;
}

// A name may hold no control character at all (C0, DEL or C1): names end up
// in the mail's text and in the store's columns.
bool HasControlCharacter(const char* utf8) {
  for (const char* p = utf8; *p != '\0'; p = g_utf8_next_char(p)) {
    if (g_unichar_iscntrl(g_utf8_get_char(p))) return true;
  }
  return false;
}

struct GFree {
  void operator()(char* p) const { g_free(p); }
};
using GChars = std::unique_ptr<char, GFree>;

}  // namespace

Decoded DecodeUrlEncoded(std::string_view body, const Limits& limits) {
  if (body.size() > limits.max_body) {
    return Refuse(413, "The form sent more data than this server takes.");
  }
  // A raw NUL ends the C strings GLib gives back; such a body is no form.
  if (std::memchr(body.data(), '\0', body.size()) != nullptr) {
    return Refuse(400, "The form's data holds a NUL byte.");
  }
  Decoded decoded;
  GUriParamsIter iter;
  g_uri_params_iter_init(&iter, body.data(), static_cast<gssize>(body.size()),
                         "&", G_URI_PARAMS_WWW_FORM);
  for (;;) {
    char* raw_name = nullptr;
    char* raw_value = nullptr;
    GError* error = nullptr;
    const gboolean more =
        g_uri_params_iter_next(&iter, &raw_name, &raw_value, &error);
    GChars name(raw_name), value(raw_value);
    if (error != nullptr) {
      // GLib refuses a bad %-escape, a pair without '=', and a decoded
      // name or value that is not UTF-8 (an escaped NUL among them).
      g_error_free(error);
      return Refuse(400, "The form's data is not valid URL-encoded UTF-8.");
    }
    if (!more) break;
    if (decoded.pairs.size() >= limits.max_fields) {
      return Refuse(413, "The form sent more fields than this server takes.");
    }
    const size_t name_length = std::strlen(name.get());
    const size_t value_length = std::strlen(value.get());
    if (name_length > limits.max_name_length) {
      return Refuse(413, "A field name is longer than this server takes.");
    }
    if (value_length > limits.max_value_length) {
      return Refuse(413, "A field's value is longer than this server takes.");
    }
    if (!g_utf8_validate_len(name.get(), name_length, nullptr) ||
        !g_utf8_validate_len(value.get(), value_length, nullptr)) {
      return Refuse(400, "The form's data is not valid UTF-8.");
    }
    if (HasControlCharacter(name.get())) {
      return Refuse(400, "A field name holds a control character.");
    }
    decoded.pairs.push_back({std::string(name.get(), name_length),
                             std::string(value.get(), value_length)});
  }
  decoded.ok = true;
  decoded.status = 200;
  return decoded;
}

bool IsUrlEncoded(std::string_view content_type) {
  if (content_type.empty() || content_type.size() > 1024 ||
      std::memchr(content_type.data(), '\0', content_type.size()) != nullptr) {
    return false;
  }
  InitMime();
  const std::string text(content_type);
  GMimeContentType* type = g_mime_content_type_parse(nullptr, text.c_str());
  if (type == nullptr) return false;
  bool ok =
      g_mime_content_type_is_type(type, "application", "x-www-form-urlencoded");
  if (ok) {
    const char* charset = g_mime_content_type_get_parameter(type, "charset");
    ok = charset == nullptr || g_ascii_strcasecmp(charset, "utf-8") == 0;
  }
  g_object_unref(type);
  return ok;
}

}  // namespace formwiz::delivery
