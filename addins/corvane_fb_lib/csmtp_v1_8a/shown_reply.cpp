// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/csmtp_v1_8a/shown_reply.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include "addins/corvane_fb_lib/base64.h"
#include "libs/base/printable.h"

namespace {

constexpr std::size_t kLongestReply = 512;  // octets of a reply line (RFC 5321 clause 4.5.3.1.5)
constexpr std::size_t kLongestShown = 200;
constexpr std::size_t kShortestPiece = 4;  // a shorter one occurs in every text

std::string LowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

/// Marks in `hidden` every place where `line` has `length` characters that occur in `secret`, too.
void HidePieces(const std::string& line, const std::string& secret, std::size_t length,
                std::vector<bool>& hidden) {
  if (length == 0 || secret.size() < length) return;
  for (std::size_t i = 0; i + length <= line.size(); ++i) {
    if (secret.find(line.data() + i, 0, length) == std::string::npos) continue;
    std::fill_n(hidden.begin() + static_cast<std::ptrdiff_t>(i), length, true);
  }
}

}  // namespace

std::string ShownReply(std::string_view line, const std::string& login,
                       const std::string& password) {
  line = line.substr(0, kLongestReply);
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  const std::string lower = LowerCase(line);
  std::vector<bool> hidden(lower.size());
  HidePieces(lower, LowerCase(login), login.size(), hidden);
  for (const std::string& secret : {password, base64_encode(login), base64_encode(password)}) {
    HidePieces(lower, LowerCase(secret), std::min(secret.size(), kShortestPiece), hidden);
  }
  std::string open;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (!hidden[i]) {
      open += line[i];
    } else if (i == 0 || !hidden[i - 1]) {
      open += "***";
    }
  }
  return corvane::PrintableBeginning(open, kLongestShown);
}
