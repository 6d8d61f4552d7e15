#include "delivery/address.h"

#include <gmime/gmime.h>

#include <algorithm>
#include <cctype>
#include <memory>

#include "delivery/mail_message.h"
#include "delivery/text_util.h"

namespace formwiz::delivery {
namespace {

struct ListUnref {
  void operator()(InternetAddressList* list) const { g_object_unref(list); }
};

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) {
    s.remove_prefix(1);
  }
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t'))
    s.remove_suffix(1);
  return s;
}

// A plain addr-spec: one '@' between a non-empty local part and domain, and
// none of the characters that would need quoting, so that the address is
// the same whether it goes into a header or an SMTP envelope.
bool IsPlainAddrSpec(std::string_view addr) {
  const size_t at = addr.find('@');
  if (at == std::string_view::npos || at == 0 || at + 1 == addr.size() ||
      addr.find('@', at + 1) != std::string_view::npos) {
    return false;
  }
  for (unsigned char c : addr) {
    if (c <= ' ' || c == 0x7f) return false;
    if (std::string_view("\"(),:;<>[\\]").find(static_cast<char>(c)) !=
        std::string_view::npos) {
      return false;
    }
  }
  return true;
}

// A domain as DNS names it: labels of letters, digits and inner hyphens.
// Nothing else may stand there, so that no domain can hold what a mail
// reader would take for an encoded word ("=?utf-8?q?=0D=0A?=").
bool IsHostname(std::string_view domain) {
  if (domain.empty() || domain.size() > 253) return false;
  size_t start = 0;
  while (true) {
    const size_t dot = domain.find('.', start);
    const std::string_view label = domain.substr(
        start,
        dot == std::string_view::npos ? std::string_view::npos : dot - start);
    if (label.empty() || label.size() > 63 || label.front() == '-' ||
        label.back() == '-') {
      return false;
    }
    for (unsigned char c : label) {
      if (!std::isalnum(c) && c != '-') return false;
    }
    if (dot == std::string_view::npos) return true;
    start = dot + 1;
  }
}

// A local part that needs no quoting (a dot-atom), without the "=?" that
// opens an encoded word.
bool IsDotAtom(std::string_view local) {
  if (local.empty() || local.front() == '.' || local.back() == '.' ||
      local.find("..") != std::string_view::npos ||
      local.find("=?") != std::string_view::npos) {
    return false;
  }
  for (unsigned char c : local) {
    if (!std::isalnum(c) &&
        std::string_view("!#$%&'*+-/=?^_`{|}~.").find(static_cast<char>(c)) ==
            std::string_view::npos) {
      return false;
    }
  }
  return true;
}

}  // namespace

std::optional<std::string> ParseSingleAddress(std::string_view text) {
  // Line breaks and other controls are refused before any parsing: a
  // parser that unfolds or skips them would let them pass.
  if (text.empty() || text.size() > 1024 || text::HasAsciiControl(text) ||
      !g_utf8_validate_len(text.data(), text.size(), nullptr)) {
    return std::nullopt;
  }
  InitMime();
  // GMime's default (loose) address rules: its strict mode leaks memory on
  // some malformed addresses ("<a@b,c>", GMime 3.2), which a visitor could
  // post without end. What loose mode recovers from is refused below.
  const std::string input(text);
  std::unique_ptr<InternetAddressList, ListUnref> list(
      internet_address_list_parse(nullptr, input.c_str()));
  if (!list || internet_address_list_length(list.get()) != 1) {
    return std::nullopt;
  }
  InternetAddress* address = internet_address_list_get_address(list.get(), 0);
  if (!INTERNET_ADDRESS_IS_MAILBOX(address)) return std::nullopt;
  InternetAddressMailbox* mailbox = INTERNET_ADDRESS_MAILBOX(address);
  const char* addr = internet_address_mailbox_get_addr(mailbox);
  // A header's and an SMTP envelope's address is ASCII: an international
  // domain is given in its ASCII form (IDNA), which GMime reads back in
  // Unicode; a local part beyond ASCII would need SMTPUTF8, which a relay
  // may not offer, so it is refused.
  const char* idn = internet_address_mailbox_get_idn_addr(mailbox);
  if (addr == nullptr || idn == nullptr) return std::nullopt;
  const std::string bare(addr), ascii(idn);
  for (unsigned char c : ascii) {
    if (c >= 0x7f) return std::nullopt;
  }
  if (!IsPlainAddrSpec(bare) || !IsPlainAddrSpec(ascii)) return std::nullopt;
  const size_t at = ascii.find('@');
  if (!IsDotAtom(std::string_view(ascii).substr(0, at)) ||
      !IsHostname(std::string_view(ascii).substr(at + 1))) {
    return std::nullopt;
  }
  // GMime recovers from some junk by dropping it ("a@b@c" gives "a@b"); an
  // address is taken only when it is literally what was written (in either
  // form), alone or in angle brackets after a display name.
  const std::string_view trimmed = Trim(text);
  bool literal = false;
  for (const std::string& form : {bare, ascii}) {
    literal = literal || trimmed == form || trimmed.ends_with("<" + form + ">");
  }
  if (!literal) return std::nullopt;
  return ascii;
}

std::string AddressDomain(std::string_view address) {
  const size_t at = address.rfind('@');
  if (at == std::string_view::npos) return "";
  std::string domain(address.substr(at + 1));
  std::transform(domain.begin(), domain.end(), domain.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return domain;
}

}  // namespace formwiz::delivery
