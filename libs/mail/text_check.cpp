// SPDX-License-Identifier: MIT
#include "libs/mail/text_check.h"

#include <utf8.h>

namespace mail {
namespace {

std::string Check(std::string_view text, const std::string& variable, std::size_t longest,
                  std::string_view remedy) {
  if (text.size() > longest) {
    return variable + " is too long: it has " + std::to_string(text.size()) + " octets, but " +
           std::to_string(longest) + " is the limit; " + std::string(remedy);
  }
  const auto wrong =
      static_cast<std::size_t>(utf8::find_invalid(text.begin(), text.end()) - text.begin());
  if (wrong < text.size()) {
    return variable + " is not valid UTF-8: octet " + std::to_string(wrong + 1) +
           " is wrong; check how the text was made";
  }
  const std::size_t nul = text.find('\0');
  if (nul != text.npos) {
    return variable + " contains a NUL: octet " + std::to_string(nul + 1) +
           "; remove it, since mail cannot carry it";
  }
  return {};
}

}  // namespace

std::string CheckSubject(std::string_view subject) {
  return Check(subject, "Subject", kMaxSubject, "shorten it");
}

std::string CheckText(std::string_view text, std::string_view variable) {
  return Check(text, std::string(variable), kMaxText, "send it as an attachment");
}

}  // namespace mail
