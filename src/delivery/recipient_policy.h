// Which qln_EmailTo values are mailed: so that a changed hidden field can
// never make the handler a relay for someone else's mail.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

namespace formwiz::delivery {

class RecipientPolicy {
 public:
  // An alias (what the author types in the wizard, say "sales") maps to an
  // address; it never stands in the page. Compared exactly.
  void AddAlias(const std::string& alias, const std::string& address);
  // An allowed address (compared without case).
  void AllowAddress(const std::string& address);
  // Every address at `domain` (without case; not its subdomains).
  void AllowDomain(const std::string& domain);

  // The address to mail for a posted qln_EmailTo: the alias's address, or
  // the posted address itself when it parses as one address and is allowed.
  // Nothing otherwise, with `reason` saying why in one line.
  std::optional<std::string> Resolve(const std::string& email_to,
                                     std::string& reason) const;

  bool empty() const;

 private:
  std::map<std::string, std::string> aliases_;
  std::set<std::string> addresses_;  // lower-cased
  std::set<std::string> domains_;    // lower-cased
};

}  // namespace formwiz::delivery
