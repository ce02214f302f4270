// SPDX-License-Identifier: MIT
#include "libs/gsm/data_coding.h"

namespace gsm {
namespace {

constexpr std::uint8_t kClassMask = 0x03;

// General data coding (groups 00xx and 01xx).
constexpr std::uint8_t kAutomaticDeletion = 0x40;
constexpr std::uint8_t kCompressed = 0x20;
constexpr std::uint8_t kHasClass = 0x10;

// Message waiting indication groups.
constexpr std::uint8_t kDiscardGroup = 0x0C;
constexpr std::uint8_t kStoreUcs2Group = 0x0E;
constexpr std::uint8_t kIndicationActive = 0x08;

constexpr std::uint8_t kClassGroup = 0x0F;
constexpr std::uint8_t kClassGroupOctets = 0x04;

Alphabet GeneralAlphabet(std::uint8_t scheme) {
  switch ((scheme >> 2) & 0x03) {
    case 1: return Alphabet::kOctets;
    case 2: return Alphabet::kUcs2;
    default: return Alphabet::kDefault;
  }
}

std::uint8_t ClassOf(std::uint8_t scheme) {
  return static_cast<std::uint8_t>(scheme & kClassMask);
}

DataCoding ReadGeneral(std::uint8_t scheme) {
  DataCoding coding;
  coding.compressed = (scheme & kCompressed) != 0;
  coding.alphabet = coding.compressed ? Alphabet::kOctets : GeneralAlphabet(scheme);
  coding.delete_on_read = (scheme & kAutomaticDeletion) != 0;
  if ((scheme & kHasClass) != 0) coding.message_class = ClassOf(scheme);
  return coding;
}

DataCoding ReadIndication(std::uint8_t scheme, std::uint8_t group) {
  DataCoding coding;
  if (group == kStoreUcs2Group) coding.alphabet = Alphabet::kUcs2;
  coding.waiting = WaitingIndication{static_cast<Waiting>(scheme & kClassMask),
                                     (scheme & kIndicationActive) != 0, group == kDiscardGroup};
  return coding;
}

}  // namespace

DataCoding ReadDataCoding(std::uint8_t scheme) noexcept {
  const auto group = static_cast<std::uint8_t>(scheme >> 4);
  if (group <= 0x07) return ReadGeneral(scheme);
  if (group >= kDiscardGroup && group <= kStoreUcs2Group) return ReadIndication(scheme, group);
  DataCoding coding;
  if (group == kClassGroup) {
    coding.message_class = ClassOf(scheme);
    if ((scheme & kClassGroupOctets) != 0) coding.alphabet = Alphabet::kOctets;
  }
  return coding;
}

std::uint8_t DataCodingScheme(Alphabet alphabet,
                              std::optional<std::uint8_t> message_class) noexcept {
  const auto bits = static_cast<std::uint8_t>(static_cast<std::uint8_t>(alphabet) << 2);
  if (!message_class) return bits;
  return static_cast<std::uint8_t>(bits | kHasClass | (*message_class & kClassMask));
}

}  // namespace gsm
