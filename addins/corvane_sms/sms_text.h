// SPDX-License-Identifier: MIT
// A text as it waits in the outbox, and as the PDUs that send it (3GPP TS 23.040, 23.038). What is
// stored is JSON, since `corvane messages` shows it. Pure functions.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "libs/gsm/pdu.h"
#include "libs/gsm/sms_text_check.h"

namespace corvane_sms {

/// What is sent to one receiver.
struct SmsContent {
  std::string text;            ///< UTF-8
  std::uint8_t reference = 0;  ///< common to the parts; should differ from message to message
  bool flash = false;          ///< class 0
  bool report = false;         ///< ask for a delivery report

  bool operator==(const SmsContent&) const = default;
};
[[nodiscard]] std::string ToJson(const SmsContent& content);
/// nullopt: not what ToJson makes.
[[nodiscard]] std::optional<SmsContent> ReadContent(const std::string& json);

/// What has been done of a message.
struct SmsProgress {
  /// A part that the network has taken.
  struct Part {
    std::uint8_t reference = 0;          ///< as the modem counts; the report has it
    std::optional<std::uint8_t> status;  ///< of the last report (clause 9.2.3.15)

    bool operator==(const Part&) const = default;
  };
  std::vector<Part> parts;
  /// That of the last attempt, so that a repetition consists of the very same octets.
  std::optional<std::uint8_t> validity;

  bool operator==(const SmsProgress&) const = default;

  /// Whether the last report of each part is final.
  [[nodiscard]] bool reported() const;
  [[nodiscard]] bool delivered() const;
};
[[nodiscard]] std::string ToJson(const SmsProgress& progress);
/// Nothing done, if the text is not what ToJson makes.
[[nodiscard]] SmsProgress ReadProgress(const std::string& json);

/// The PDU of one part. @param part counted from 0, less than the number of parts
[[nodiscard]] gsm::Octets MakeSubmit(const SmsContent& content, const std::string& receiver,
                                     std::size_t part, std::uint8_t validity);
/// How many parts a content has; 0: it cannot be sent.
[[nodiscard]] std::size_t CountParts(const SmsContent& content);

/// The validity period (clause 9.2.3.12.1) for a time, rounded up.
[[nodiscard]] std::uint8_t ValidityOf(std::chrono::milliseconds time);

}  // namespace corvane_sms
