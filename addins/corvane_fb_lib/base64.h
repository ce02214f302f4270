// SPDX-License-Identifier: MIT
// Base64 (RFC 4648 clause 4): the standard alphabet, with padding, without line breaks. No shared
// state: any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Four characters for every three bytes, or fewer at the end; empty for no bytes.
std::string base64_encode(const unsigned char* bytes, unsigned int len);
inline std::string base64_encode(std::string_view bytes) {
  return base64_encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                       static_cast<unsigned int>(bytes.size()));
}

/// The same, written to `out`, which has room for base64_length(length) characters; no NUL after
/// them. @return the end of what was written
char* base64_write(char* out, const unsigned char* bytes, std::size_t length);

/// How many characters encode `length` bytes.
constexpr std::size_t base64_length(std::size_t length) {
  return (length + 2) / 3 * 4;
}

/// The bytes of `text` up to its first "=" or the first character outside the alphabet; what
/// follows is ignored. A single left-over character yields nothing. Never fails.
std::string base64_decode(const std::string& text);
