// SPDX-License-Identifier: MIT
// Base64 (RFC 4648 clause 4): the standard alphabet, with padding, without line breaks. No shared
// state: any thread.
#pragma once

#include <cstddef>
#include <string>

/// Four characters for every three bytes, or fewer at the end; empty for no bytes.
std::string base64_encode(const unsigned char* bytes, unsigned int len);

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
