// SPDX-License-Identifier: MIT
#include "libs/gsm/sms_text_check.h"

#include <utf8.h>

#include "libs/gsm/user_data.h"

namespace gsm {
namespace {

/// Characters of 20 parts in the default alphabet, and the octets of UTF-8 that they take at most.
constexpr std::size_t kMaxOctets = kMaxParts * 153 * 3;

}  // namespace

TextCheck CheckText(std::string_view text) {
  if (text.empty()) return {TextProblem::kInvalid, "Text is empty; give a text", 0};
  TextCheck too_long{TextProblem::kTooLong,
                     "Text is too long: it needs more than 20 parts; shorten it, or send it in "
                     "several messages",
                     0};
  if (text.size() > kMaxOctets) return too_long;
  const auto wrong = utf8::find_invalid(text.begin(), text.end());
  if (wrong != text.end()) {
    return {TextProblem::kInvalid,
            "Text is not valid UTF-8: octet " + std::to_string(wrong - text.begin() + 1) +
                " is wrong; check how the text was made",
            0};
  }
  const auto parts = SplitText(text, {});
  if (!parts || parts->size() > kMaxParts) return too_long;
  return {TextProblem::kNone, {}, parts->size()};
}

}  // namespace gsm
