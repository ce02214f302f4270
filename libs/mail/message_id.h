// SPDX-License-Identifier: MIT
// The identification of a mail (RFC 5322 clause 3.6.4).
#pragma once

#include <string>
#include <string_view>

namespace mail {

/// `<128 random bits@domain>`, which no other mail has. Keep it with the mail: whoever receives a
/// repetition recognises it by this. @param domain of the sender, as DomainOf gives it
[[nodiscard]] std::string NewMessageId(std::string_view domain);

}  // namespace mail
