// SPDX-License-Identifier: MIT
// What a command ends with (ITU-T V.250 clause 5.7; 3GPP TS 27.005 clause 3.2.5; 27.007 clause 9).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace modem_simulator {

enum class ResultKind {
  kOk,
  kError,
  kNoCarrier,
  kCmsError,      ///< +CMS ERROR: number
  kCmeError,      ///< +CME ERROR: number
  kPrompt,        ///< no result yet: a message must follow
  kAwaitNetwork,  ///< no result yet: the network must confirm
};

struct Result {
  ResultKind kind = ResultKind::kOk;
  int number = 0;

  bool operator==(const Result&) const = default;
};

constexpr Result kOk{ResultKind::kOk};
constexpr Result kError{ResultKind::kError};
constexpr Result Cms(int number) {
  return {ResultKind::kCmsError, number};
}
constexpr Result Cme(int number) {
  return {ResultKind::kCmeError, number};
}

/// Numbers of +CMS ERROR.
enum CmsError : int {
  kOperationNotAllowed = 302,
  kOperationNotSupported = 303,
  kInvalidPduParameter = 304,
  kInvalidTextParameter = 305,
  kSimNotInserted = 310,
  kSimPinRequired = 311,
  kSimPukRequired = 316,
  kInvalidIndex = 321,
  kMemoryFull = 322,
  kNoNetworkService = 331,
  kNoAcknowledgementExpected = 340,
};

/// Numbers of +CME ERROR.
enum CmeError : int {
  kCmeOperationNotAllowed = 3,
  kCmeSimNotInserted = 10,
  kCmePinRequired = 11,
  kCmePukRequired = 12,
  kCmeIncorrectPassword = 16,
  kCmeNoNetworkService = 30,
  kCmeIncorrectParameters = 50,
};

/// The information text of an answer: each block is framed separately, and may have several lines.
using Answer = std::vector<std::string>;

/// How results are written; the settings of ATV and AT+CMEE.
struct ResultFormat {
  bool verbose = true;
  int error_level = 0;  ///< +CME ERROR as 0: ERROR, 1: number, 2: words
};

/// In words: "OK", "+CMS ERROR: 321"; empty for kPrompt and kAwaitNetwork.
[[nodiscard]] std::string DescribeResult(Result result, int error_level);

/// The bytes of a final result; empty for kPrompt and kAwaitNetwork.
[[nodiscard]] std::string FormatResult(Result result, ResultFormat format);

/// The bytes of one block of information text.
[[nodiscard]] std::string FormatInformation(std::string_view block, ResultFormat format);

}  // namespace modem_simulator
