// SPDX-License-Identifier: MIT
// Whether a text can be sent as an SMS (3GPP TS 23.040, 23.038), and in how many parts. Pure
// functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace gsm {

/// More would cost too much.
inline constexpr std::size_t kMaxParts = 20;

/// Why a text cannot be sent.
enum class TextProblem : std::uint8_t { kNone, kInvalid, kTooLong };

struct TextCheck {
  TextProblem problem = TextProblem::kNone;
  std::string sentence;   ///< empty without a problem
  std::size_t parts = 0;  ///< of the text, for one receiver
};
/// A text far too long is refused without being read.
[[nodiscard]] TextCheck CheckText(std::string_view text);

}  // namespace gsm
