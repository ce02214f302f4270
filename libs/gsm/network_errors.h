// SPDX-License-Identifier: MIT
// Why a modem or the network refuses: the numbers of +CMS ERROR (3GPP TS 27.005 clause 3.2.5, which
// includes those of TS 24.011 annex E and TS 23.040 clause 9.2.3.22) and of +CME ERROR (TS 27.007
// clause 9.2). One table for all who show a number or decide by it.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace gsm {

/// What a refusal means for the message that was refused.
enum class ErrorClass : std::uint8_t {
  kForGood,  ///< this message will never be taken, however often it is sent
  kForNow,   ///< the same message may be taken later
  kSim,   ///< the SIM card is missing, locked or defective: no message is taken until that is put
          ///< right
  kPort,  ///< the modem or its settings are wrong: no message is taken until that is put right
};

struct NetworkError {
  int number;
  ErrorClass error_class;
  std::string_view meaning;  ///< a few words, such as "no network service"
};

/// By number.
[[nodiscard]] std::span<const NetworkError> CmsErrors() noexcept;
[[nodiscard]] std::span<const NetworkError> CmeErrors() noexcept;

/// Null: the standards give the number no meaning.
[[nodiscard]] const NetworkError* FindCmsError(int number) noexcept;
[[nodiscard]] const NetworkError* FindCmeError(int number) noexcept;

/// The class of a number; kForNow where there is none, as for makers' own numbers (512 and above):
/// nothing then says that the message is wrong.
[[nodiscard]] ErrorClass ClassOfCmsError(int number) noexcept;
[[nodiscard]] ErrorClass ClassOfCmeError(int number) noexcept;

}  // namespace gsm
