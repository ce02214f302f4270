// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/smtp_features.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

namespace corvane_mail {
namespace {

bool Equals(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/// Takes the first word off the text. Old servers write `AUTH=LOGIN`.
std::string_view TakeWord(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(" =\t"), text.size()));
  const std::string_view word = text.substr(0, text.find_first_of(" =\t"));
  text.remove_prefix(word.size());
  return word;
}

}  // namespace

void ReadFeature(std::string_view line, SmtpFeatures& features) {
  const std::string_view keyword = TakeWord(line);
  if (Equals(keyword, "SIZE")) {
    const std::string_view limit = TakeWord(line);
    features.size = true;
    std::from_chars(limit.data(), limit.data() + limit.size(), features.max_size);
  } else if (Equals(keyword, "8BITMIME")) {
    features.eight_bit = true;
  } else if (Equals(keyword, "SMTPUTF8")) {
    features.smtputf8 = true;
  } else if (Equals(keyword, "AUTH")) {
    for (auto name = TakeWord(line); !name.empty(); name = TakeWord(line)) {
      features.plain |= Equals(name, "PLAIN");
      features.login |= Equals(name, "LOGIN");
      features.xoauth2 |= Equals(name, "XOAUTH2");
    }
  }
}

}  // namespace corvane_mail
