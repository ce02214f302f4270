// SPDX-License-Identifier: MIT
#include "libs/mail/text_part.h"

#include <algorithm>

#include "libs/mail/header_text.h"
#include "libs/mail/line_base64.h"

namespace mail {
namespace {

constexpr std::size_t kLongestPlainLine = 78;   // RFC 5322 clause 2.1.1
constexpr std::size_t kLongestQuotedLine = 76;  // RFC 2045 clause 6.7 (5), with the = at its end
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kFrom = "From ";

std::string WithLineEnds(std::string_view text) {
  std::string lines;
  lines.reserve(text.size() + text.size() / 32);
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    lines += line;
    if (end == text.npos) break;
    lines += line.ends_with('\r') ? "\n" : kLineEnd;
    text.remove_prefix(end + 1);
  }
  return lines;
}

/// Calls `visit(line, is_last)` for each line of a text with CRLF; the last may be empty.
template <class Visit>
void ForEachLine(std::string_view text, Visit visit) {
  for (std::size_t end = 0; (end = text.find(kLineEnd)) != text.npos; text.remove_prefix(end + 2)) {
    visit(text.substr(0, end), false);
  }
  visit(text, true);
}

bool IsPlainCharacter(char c) {
  return (c >= ' ' && c <= '~') || c == '\t';
}

/// Whether servers, mailboxes and readers leave the line alone.
bool IsPlainLine(std::string_view line) {
  return line.size() <= kLongestPlainLine &&
         std::all_of(line.begin(), line.end(), IsPlainCharacter) && !line.starts_with('.') &&
         !line.starts_with(kFrom) && !line.starts_with("--=_") && !line.ends_with(' ') &&
         !line.ends_with('\t');
}

/// @param starts whether the character is the first of a line of the body
bool NeedsEscape(std::string_view line, std::size_t place, bool starts) {
  const char c = line[place];
  if (!IsPlainCharacter(c) || c == '=') return true;
  if (starts && (c == '.' || line.substr(place).starts_with(kFrom))) return true;
  return place + 1 == line.size() && (c == ' ' || c == '\t');
}

/// Appends a line, divided by soft line breaks (RFC 2045 clause 6.7 (5)).
void AppendQuotedPrintable(std::string_view line, std::string& body) {
  std::size_t column = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const std::size_t size = NeedsEscape(line, i, column == 0) ? 3 : 1;
    if (column + size >= kLongestQuotedLine) {
      body += "=\r\n";
      column = 0;
    }
    if (NeedsEscape(line, i, column == 0)) {
      AppendEscaped(line[i], body);
      column += 3;
    } else {
      body += line[i];
      ++column;
    }
  }
}

std::string QuotedPrintable(std::string_view text) {
  std::string body;
  body.reserve(text.size() + text.size() / 8);
  ForEachLine(text, [&body](std::string_view line, bool is_last) {
    AppendQuotedPrintable(line, body);
    if (!is_last) body += kLineEnd;
  });
  return body;
}

struct Census {
  bool plain = true;
  bool ascii = true;
  std::size_t octets = 0;
  std::size_t escaped = 0;  // that quoted-printable would have to escape
};

Census Count(std::string_view text) {
  Census census;
  ForEachLine(text, [&census](std::string_view line, bool /*is_last*/) {
    census.plain = census.plain && IsPlainLine(line);
    census.octets += line.size();
    for (std::size_t i = 0; i < line.size(); ++i) {
      census.ascii = census.ascii && IsAscii(line[i]);
      if (NeedsEscape(line, i, i == 0)) ++census.escaped;
    }
  });
  return census;
}

}  // namespace

TextPart EncodeText(std::string_view text) {
  std::string lines = WithLineEnds(ValidUtf8(text));
  const Census census = Count(lines);
  const std::string charset = census.ascii ? "us-ascii" : "utf-8";
  if (census.plain) return {charset, "7bit", std::move(lines)};
  // From here on base64 is clearly shorter. Filters distrust it in ASCII.
  const bool mostly_escaped = 3 * census.escaped > census.octets;
  if (mostly_escaped && !census.ascii) return {charset, "base64", Base64Lines(lines)};
  return {charset, "quoted-printable", QuotedPrintable(lines)};
}

}  // namespace mail
