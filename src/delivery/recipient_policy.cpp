#include "delivery/recipient_policy.h"

#include <algorithm>
#include <cctype>

#include "delivery/address.h"

namespace formwiz::delivery {
namespace {

std::string Lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return s;
}

}  // namespace

void RecipientPolicy::AddAlias(const std::string& alias,
                               const std::string& address) {
  aliases_[alias] = address;
}

void RecipientPolicy::AllowAddress(const std::string& address) {
  addresses_.insert(Lower(address));
}

void RecipientPolicy::AllowDomain(const std::string& domain) {
  domains_.insert(Lower(domain));
}

std::optional<std::string> RecipientPolicy::Resolve(const std::string& email_to,
                                                    std::string& reason) const {
  if (email_to.empty()) {
    reason = "the form names no recipient";
    return std::nullopt;
  }
  if (auto alias = aliases_.find(email_to); alias != aliases_.end()) {
    return alias->second;
  }
  const std::optional<std::string> address = ParseSingleAddress(email_to);
  if (!address) {
    reason = "the recipient is neither an alias nor one valid address";
    return std::nullopt;
  }
  if (addresses_.count(Lower(*address)) > 0 ||
      domains_.count(AddressDomain(*address)) > 0) {
    return address;
  }
  reason = "the recipient " + *address + " is not allowed on this server";
  return std::nullopt;
}

bool RecipientPolicy::empty() const {
  return aliases_.empty() && addresses_.empty() && domains_.empty();
}

}  // namespace formwiz::delivery
