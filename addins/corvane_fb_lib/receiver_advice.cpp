// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/receiver_advice.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "libs/base/printable.h"

namespace {

constexpr std::ptrdiff_t kShortest = 4;  // digits; short codes of services may have three
constexpr std::size_t kLongestReceiverShown = 200;

bool IsDigit(char c) {
  return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

bool IsShort(const std::string& number) {
  return !number.empty() && std::count_if(number.begin(), number.end(), IsDigit) < kShortest;
}

std::string ReceiverText(const std::string& text) {
  return "\"" + corvane::PrintableBeginning(text, kLongestReceiverShown) + "\"";
}

/// The number to write if the whole text is one number.
std::string DigitsOf(const std::string& text) {
  std::string digits;
  std::copy_if(text.begin(), text.end(), std::back_inserter(digits), IsDigit);
  return digits;
}

}  // namespace

std::string AdviceOnReceiver(const std::string& receiver, const std::vector<std::string>& numbers) {
  const auto number = std::find_if(numbers.begin(), numbers.end(), IsShort);
  if (number == numbers.end()) return {};
  const auto count = std::count_if(numbers.begin(), numbers.end(),
                                   [](const std::string& text) { return !text.empty(); });
  std::string advice = "SEND_SMS: Receiver " + ReceiverText(receiver);
  if (count == 1) {
    return advice +
           " has fewer than four digits: correct for the short code of a service; otherwise "
           "write the whole number with its country code, digits only";
  }
  return advice + " is read as " + std::to_string(count) +
         " receivers, since spaces and commas separate them, and " + ReceiverText(*number) +
         " has fewer than four digits: if it is one number, write " +
         ReceiverText(DigitsOf(receiver)) + "; the short code of a service is correct as it is";
}
