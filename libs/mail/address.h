// SPDX-License-Identifier: MIT
// Mail addresses as people write them (RFC 5322 clause 3.4, RFC 6532), within the limits of RFC
// 5321. Pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace mail {

/// More in one list would take too long to deliver, and many servers refuse more (RFC 5321 clause
/// 4.5.3.1.8).
inline constexpr std::size_t kMaxAddresses = 100;

struct Address {
  std::string name;     ///< as a reader sees it, UTF-8, on one line; may be empty
  std::string mailbox;  ///< local@domain as SMTP takes it: the local part quoted where it must be,
                        ///< UTF-8 at most there; names of hosts in ASCII (RFC 5890)

  bool operator==(const Address&) const = default;
};

struct AddressList {
  std::vector<Address> addresses;  ///< each mailbox once; empty if there is a problem
  std::string
      problem;  ///< a sentence that names the address, its place and the remedy; empty: none
};

/// Reads `pump3@plant.example`, `Pump station 3 <pump3@plant.example>` and the like, separated by
/// `;`,
/// `,` or line feeds outside of quotation marks and comments. Empty entries are skipped, so an
/// empty text gives an empty list. Comments are dropped; groups are refused. Takes linear time.
[[nodiscard]] AddressList ReadAddresses(std::string_view text);

/// The same for exactly one address.
[[nodiscard]] AddressList ReadAddress(std::string_view text);

/// Whether only a server that offers SMTPUTF8 (RFC 6531) can take this mailbox.
[[nodiscard]] bool NeedsSmtpUtf8(const Address& address);

/// What follows the last @ of a mailbox.
[[nodiscard]] std::string_view DomainOf(const Address& address);

}  // namespace mail
