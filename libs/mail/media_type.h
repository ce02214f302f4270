// SPDX-License-Identifier: MIT
// The type of a file by its name (the media types that IANA registers).
#pragma once

#include <string_view>

namespace mail {

/// Such as "application/pdf", by what follows the last dot, in any case; "application/octet-stream"
/// if that is unknown.
[[nodiscard]] std::string_view MediaTypeOf(std::string_view file_name);

}  // namespace mail
