// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/result.h"

#include <fmt/format.h>

#include <optional>

namespace modem_simulator {
namespace {

/// The words of AT+CMEE=2; the number if we have none.
std::string CmeWords(int number) {
  switch (number) {
    case kCmeOperationNotAllowed: return "operation not allowed";
    case kCmeSimNotInserted: return "SIM not inserted";
    case kCmePinRequired: return "SIM PIN required";
    case kCmePukRequired: return "SIM PUK required";
    case kCmeIncorrectPassword: return "incorrect password";
    case 14: return "SIM busy";
    case kCmeNoNetworkService: return "no network service";
    case kCmeIncorrectParameters: return "Incorrect parameters";
    default: return fmt::format("{}", number);
  }
}

std::string DescribeCmeError(int number, int error_level) {
  switch (error_level) {
    case 0: return "ERROR";
    case 1: return fmt::format("+CME ERROR: {}", number);
    default: return fmt::format("+CME ERROR: {}", CmeWords(number));
  }
}

/// The number that ATV0 shows instead of words; nullopt if the words stay.
std::optional<int> NumericCode(Result result, int error_level) {
  switch (result.kind) {
    case ResultKind::kOk: return 0;
    case ResultKind::kNoCarrier: return 3;
    case ResultKind::kError: return 4;
    case ResultKind::kCmeError: return error_level == 0 ? std::optional(4) : std::nullopt;
    case ResultKind::kCmsError:
    case ResultKind::kPrompt:
    case ResultKind::kAwaitNetwork: return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace

std::string DescribeResult(Result result, int error_level) {
  switch (result.kind) {
    case ResultKind::kOk: return "OK";
    case ResultKind::kError: return "ERROR";
    case ResultKind::kNoCarrier: return "NO CARRIER";
    case ResultKind::kCmsError: return fmt::format("+CMS ERROR: {}", result.number);
    case ResultKind::kCmeError: return DescribeCmeError(result.number, error_level);
    case ResultKind::kPrompt:
    case ResultKind::kAwaitNetwork: return {};
  }
  return {};
}

std::string FormatResult(Result result, ResultFormat format) {
  const std::string words = DescribeResult(result, format.error_level);
  if (words.empty()) return {};
  if (const auto code = NumericCode(result, format.error_level); code && !format.verbose) {
    return fmt::format("{}\r", *code);
  }
  return fmt::format("\r\n{}\r\n", words);
}

std::string FormatInformation(std::string_view block, ResultFormat format) {
  return fmt::format("{}{}\r\n", format.verbose ? "\r\n" : "", block);
}

}  // namespace modem_simulator
