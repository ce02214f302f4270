// SPDX-License-Identifier: MIT
// Which variables of a program hold secrets, as far as their names tell.
#pragma once

#include <string_view>

namespace corvane::bench {

/// PIN, Password, Token and the like, in any case and also as the last word: smtp_password, simPin.
[[nodiscard]] bool IsSecretName(std::string_view name);

}  // namespace corvane::bench
