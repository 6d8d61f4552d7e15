// E-mail addresses, parsed by GMime, never pasted: what a visitor or a page
// gives is reduced to one bare addr-spec or refused.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace formwiz::delivery {

// The one mailbox in `text` as a bare "local@domain", or nothing when `text`
// holds no address, more than one, a group, any control character, or an
// address without a domain. The address comes back in ASCII, as it may
// stand in a header: an international domain in its IDNA form; a local part
// beyond ASCII is refused.
std::optional<std::string> ParseSingleAddress(std::string_view text);

// The domain of a bare address, lower-cased ("" when none).
std::string AddressDomain(std::string_view address);

}  // namespace formwiz::delivery
