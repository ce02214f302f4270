// SPDX-License-Identifier: MIT
#include "libs/gsm/user_data_header.h"

#include <initializer_list>

namespace gsm {
namespace {

/// Information element identifiers (clause 9.2.3.24).
enum Element : std::uint8_t {
  kConcatenated = 0x00,
  kPorts = 0x04,
  kWidePorts = 0x05,
  kWideConcatenated = 0x08,
  kSingleShift = 0x24,
  kLockingShift = 0x25,
};

std::uint16_t Wide(std::uint8_t high, std::uint8_t low) {
  return static_cast<std::uint16_t>(high << 8 | low);
}

std::uint8_t High(std::uint16_t value) {
  return static_cast<std::uint8_t>(value >> 8);
}

std::uint8_t Low(std::uint16_t value) {
  return static_cast<std::uint8_t>(value & 0xFF);
}

/// A place whose numbers make no sense is ignored (clause 9.2.3.24.1).
void SetPlace(const Concatenation& place, UserDataHeader& header) {
  if (place.sequence != 0 && place.sequence <= place.total) header.concatenation = place;
}

/// An element of the wrong length is ignored.
void ReadElement(std::uint8_t element, OctetSpan value, UserDataHeader& header) {
  const std::size_t length = value.size();
  if (element == kConcatenated && length == 3) {
    SetPlace({value[0], value[1], value[2], false}, header);
  } else if (element == kWideConcatenated && length == 4) {
    SetPlace({Wide(value[0], value[1]), value[2], value[3], true}, header);
  } else if (element == kPorts && length == 2) {
    header.ports = Ports{value[0], value[1], false};
  } else if (element == kWidePorts && length == 4) {
    header.ports = Ports{Wide(value[0], value[1]), Wide(value[2], value[3]), true};
  } else if (element == kSingleShift && length == 1) {
    header.shifts.single = static_cast<Language>(value[0]);
  } else if (element == kLockingShift && length == 1) {
    header.shifts.locking = static_cast<Language>(value[0]);
  }
}

void WriteElement(std::uint8_t element, std::initializer_list<std::uint8_t> value, Octets& out) {
  out.push_back(element);
  out.push_back(static_cast<std::uint8_t>(value.size()));
  out.insert(out.end(), value);
}

void WritePlace(const Concatenation& place, Octets& out) {
  const auto low = Low(place.reference);
  if (place.wide) {
    WriteElement(kWideConcatenated, {High(place.reference), low, place.total, place.sequence}, out);
  } else {
    WriteElement(kConcatenated, {low, place.total, place.sequence}, out);
  }
}

void WritePorts(const Ports& ports, Octets& out) {
  const auto to = Low(ports.destination);
  const auto from = Low(ports.originator);
  if (ports.wide) {
    WriteElement(kWidePorts, {High(ports.destination), to, High(ports.originator), from}, out);
  } else {
    WriteElement(kPorts, {to, from}, out);
  }
}

void WriteShift(std::uint8_t element, Language language, Octets& out) {
  if (language == Language::kDefault) return;
  WriteElement(element, {static_cast<std::uint8_t>(language)}, out);
}

}  // namespace

std::optional<UserDataHeader> ReadHeader(OctetSpan octets) {
  OctetReader in(octets);
  UserDataHeader header;
  for (std::size_t left = octets.size(); left > 0;) {
    const std::uint8_t element = in.Next();
    const std::uint8_t length = in.Next();
    const OctetSpan value = in.Take(length);
    if (in.error() != PduError::kNone) return std::nullopt;
    ReadElement(element, value, header);
    left -= std::size_t{2} + length;
  }
  return header;
}

Octets WriteHeader(const UserDataHeader& header) {
  Octets elements;
  if (header.concatenation) WritePlace(*header.concatenation, elements);
  if (header.ports) WritePorts(*header.ports, elements);
  WriteShift(kSingleShift, header.shifts.single, elements);
  WriteShift(kLockingShift, header.shifts.locking, elements);
  if (elements.empty()) return elements;
  elements.insert(elements.begin(), static_cast<std::uint8_t>(elements.size()));
  return elements;
}

}  // namespace gsm
