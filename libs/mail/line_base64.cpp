// SPDX-License-Identifier: MIT
#include "libs/mail/line_base64.h"

#include <algorithm>

namespace mail {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kOctetsOfLine = 57;  // 76 characters

/// Writes the characters of one to three octets.
char* WriteGroup(std::string_view octets, char* out) {
  unsigned bits = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    bits = bits << 8 | (i < octets.size() ? static_cast<unsigned char>(octets[i]) : 0U);
  }
  for (int i = 0; i < 4; ++i) out[i] = kDigits[bits >> (18 - 6 * i) & 0x3F];
  for (std::size_t i = octets.size() + 1; i < 4; ++i) out[i] = '=';
  return out + 4;
}

char* Write(std::string_view octets, char* out) {
  for (; !octets.empty(); octets.remove_prefix(std::min<std::size_t>(3, octets.size()))) {
    out = WriteGroup(octets.substr(0, 3), out);
  }
  return out;
}

constexpr std::uint64_t Base64Size(std::uint64_t octets) {
  return (octets + 2) / 3 * 4;
}

}  // namespace

std::string Base64(std::string_view octets) {
  std::string text(static_cast<std::size_t>(Base64Size(octets.size())), '\0');
  Write(octets, text.data());
  return text;
}

std::string Base64Lines(std::string_view octets) {
  std::string text(static_cast<std::size_t>(Base64LinesSize(octets.size())), '\0');
  char* out = text.data();
  while (!octets.empty()) {
    out = Write(octets.substr(0, kOctetsOfLine), out);
    *out++ = '\r';
    *out++ = '\n';
    octets.remove_prefix(std::min(kOctetsOfLine, octets.size()));
  }
  return text;
}

std::uint64_t Base64LinesSize(std::uint64_t octets) noexcept {
  return Base64Size(octets) + 2 * ((octets + kOctetsOfLine - 1) / kOctetsOfLine);
}

std::size_t LineBase64::Read(std::span<char> buffer) {
  if (given_ == encoded_.size() && !Refill()) return 0;
  const std::size_t count = encoded_.copy(buffer.data(), buffer.size(), given_);
  given_ += count;
  return count;
}

bool LineBase64::Refill() {
  if (failed_ || left_ == 0) return false;
  std::array<char, kLines * kOctetsOfLine> octets{};
  const auto wanted = std::span(octets).first(
      static_cast<std::size_t>(std::min<std::uint64_t>(left_, octets.size())));
  for (std::size_t read = 0; read < wanted.size();) {
    const std::size_t count = octets_ ? octets_->Read(wanted.subspan(read)) : 0;
    failed_ = count == 0 || count > wanted.size() - read;
    if (failed_) return false;
    read += count;
  }
  left_ -= wanted.size();
  encoded_ = Base64Lines({wanted.data(), wanted.size()});
  given_ = 0;
  return true;
}

}  // namespace mail
