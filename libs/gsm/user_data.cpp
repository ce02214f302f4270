// SPDX-License-Identifier: MIT
#include "libs/gsm/user_data.h"

#include "libs/gsm/default_alphabet.h"
#include "libs/gsm/hexadecimal.h"
#include "libs/gsm/septets.h"
#include "libs/gsm/utf16.h"

namespace gsm {
namespace {

constexpr std::size_t kMostSeptets = 160;
constexpr std::size_t kMostOctets = 140;
constexpr std::uint8_t kConcatenated = 0x00;      // information element, 8-bit reference
constexpr std::uint8_t kWideConcatenated = 0x08;  // the same with a 16-bit reference

/// Where the first septet behind a header of `octets` begins: on the next septet boundary.
unsigned FillBits(std::size_t octets) {
  return static_cast<unsigned>((7 - octets * 8 % 7) % 7);
}

std::size_t HeaderSeptets(std::size_t octets) {
  return (octets * 8 + 6) / 7;
}

/// A place whose numbers make no sense is no place (clause 9.2.3.24.1).
std::optional<Concatenation> Sensible(const Concatenation& place) {
  if (place.total == 0 || place.sequence == 0 || place.sequence > place.total) return std::nullopt;
  return place;
}

std::optional<Concatenation> ReadPlace(std::uint8_t element, OctetSpan value) {
  if (element == kConcatenated && value.size() == 3) {
    return Sensible({value[0], value[1], value[2], false});
  }
  if (element == kWideConcatenated && value.size() == 4) {
    const auto reference = static_cast<std::uint16_t>(value[0] << 8 | value[1]);
    return Sensible({reference, value[2], value[3], true});
  }
  return std::nullopt;
}

struct Header {
  bool well_formed = false;
  std::optional<Concatenation> concatenation;
};

/// The information elements behind the length octet; well-formed when they fill it exactly.
Header ReadElements(OctetSpan octets) {
  OctetReader in(octets);
  Header header;
  for (std::size_t left = octets.size(); left > 0;) {
    const std::uint8_t element = in.Next();
    const std::uint8_t length = in.Next();
    const OctetSpan value = in.Take(length);
    if (in.error() != PduError::kNone) return {};
    // The last one of an element that is given twice counts.
    if (const auto place = ReadPlace(element, value)) header.concatenation = place;
    left -= std::size_t{2} + length;
  }
  header.well_formed = true;
  return header;
}

Octets Payload(Alphabet alphabet, OctetSpan octets, std::size_t length, std::size_t header) {
  if (alphabet == Alphabet::kDefault) {
    return UnpackSeptets(octets.subspan(header), length - HeaderSeptets(header), FillBits(header));
  }
  const OctetSpan rest = octets.subspan(header);
  return {rest.begin(), rest.end()};
}

Octets WriteHeader(const std::optional<Concatenation>& place) {
  if (!place) return {};
  if (!place->wide) {
    return {5,
            kConcatenated,
            3,
            static_cast<std::uint8_t>(place->reference & 0xFF),
            place->total,
            place->sequence};
  }
  return {6,
          kWideConcatenated,
          4,
          static_cast<std::uint8_t>(place->reference >> 8),
          static_cast<std::uint8_t>(place->reference & 0xFF),
          place->total,
          place->sequence};
}

/// Octets or septets that one part holds behind a header of `header` octets.
std::size_t Capacity(Alphabet alphabet, std::size_t header) {
  if (alphabet == Alphabet::kDefault) return kMostSeptets - HeaderSeptets(header);
  const std::size_t octets = kMostOctets - header;
  return alphabet == Alphabet::kUcs2 ? octets / 2 * 2 : octets;
}

/// Payloads of whole characters, each as full as it gets.
std::optional<std::vector<UserData>> Split(Alphabet alphabet, const std::vector<Octets>& characters,
                                           const SplitOptions& options) {
  std::size_t size = 0;
  for (const Octets& character : characters) size += character.size();
  UserData part{alphabet, std::nullopt, {}};
  std::size_t capacity = Capacity(alphabet, 0);
  if (size > capacity) {
    part.concatenation = Concatenation{options.reference, 1, 1, options.wide_reference};
    if (!options.wide_reference) part.concatenation->reference &= 0xFF;
    capacity = Capacity(alphabet, WriteHeader(part.concatenation).size());
  }
  std::vector<UserData> parts{part};
  for (const Octets& character : characters) {
    if (parts.back().payload.size() + character.size() > capacity) parts.push_back(part);
    Octets& payload = parts.back().payload;
    payload.insert(payload.end(), character.begin(), character.end());
  }
  if (parts.size() > 255) return std::nullopt;
  for (std::size_t i = 0; i < parts.size() && parts[i].concatenation; ++i) {
    parts[i].concatenation->total = static_cast<std::uint8_t>(parts.size());
    parts[i].concatenation->sequence = static_cast<std::uint8_t>(i + 1);
  }
  return parts;
}

}  // namespace

Alphabet AlphabetOf(std::uint8_t data_coding_scheme) noexcept {
  const std::uint8_t group = data_coding_scheme >> 4;
  const std::uint8_t general = (data_coding_scheme >> 2) & 0x03;
  if (group <= 0x07) {  // general data coding, with or without automatic deletion
    if ((data_coding_scheme & 0x20) != 0) return Alphabet::kOctets;  // compressed
    if (general == 1) return Alphabet::kOctets;
    return general == 2 ? Alphabet::kUcs2 : Alphabet::kDefault;
  }
  if (group == 0x0E) return Alphabet::kUcs2;  // message waiting, UCS-2
  if (group == 0x0F && (general & 1) != 0) return Alphabet::kOctets;
  return Alphabet::kDefault;
}

std::uint8_t DataCodingScheme(Alphabet alphabet) noexcept {
  switch (alphabet) {
    case Alphabet::kDefault: return 0x00;
    case Alphabet::kOctets: return 0x04;
    case Alphabet::kUcs2: return 0x08;
  }
  return 0x00;
}

UserData ReadUserData(OctetReader& in, std::uint8_t data_coding_scheme, bool has_header) {
  UserData data;
  data.alphabet = AlphabetOf(data_coding_scheme);
  // Compressed septets would be counted in octets, too.
  const bool septets = data.alphabet == Alphabet::kDefault;
  const std::size_t length = in.Next();
  if (length > (septets ? kMostSeptets : kMostOctets)) in.Refuse(PduError::kBadLength);
  const OctetSpan octets = in.Take(septets ? (length * 7 + 7) / 8 : length);
  if (in.error() != PduError::kNone) return data;
  std::size_t header_size = 0;
  if (has_header) {
    data.header_ignored = true;
    const std::size_t size = octets.empty() ? octets.size() + 1 : std::size_t{octets[0]} + 1;
    const bool fits = septets ? HeaderSeptets(size) <= length : size <= length;
    const Header header = fits ? ReadElements(octets.subspan(1, size - 1)) : Header{};
    if (header.well_formed) {
      data.header_ignored = false;
      data.concatenation = header.concatenation;
      header_size = size;
    }
  }
  data.payload = Payload(data.alphabet, octets, length, header_size);
  return data;
}

void WriteUserData(const UserData& data, Octets& out) {
  const Octets header = WriteHeader(data.concatenation);
  const bool septets = data.alphabet == Alphabet::kDefault;
  const std::size_t length =
      data.payload.size() + (septets ? HeaderSeptets(header.size()) : header.size());
  out.push_back(static_cast<std::uint8_t>(length));
  out.insert(out.end(), header.begin(), header.end());
  const Octets payload =
      septets ? PackSeptets(data.payload, FillBits(header.size())) : data.payload;
  out.insert(out.end(), payload.begin(), payload.end());
}

std::string PayloadText(Alphabet alphabet, OctetSpan payload) {
  switch (alphabet) {
    case Alphabet::kDefault: return DecodeDefaultAlphabet(payload);
    case Alphabet::kOctets: return ToHexadecimal(payload);
    case Alphabet::kUcs2: return DecodeUtf16(payload);
  }
  return {};
}

std::optional<std::vector<UserData>> SplitText(std::string_view utf8, const SplitOptions& options) {
  const auto text = CodePoints(utf8);
  if (!text) return std::nullopt;
  std::vector<Octets> characters;
  for (const char32_t character : *text) {
    auto septets = EncodeDefaultAlphabet(character);
    if (!septets) break;
    characters.push_back(std::move(*septets));
  }
  if (characters.size() == text->size()) return Split(Alphabet::kDefault, characters, options);
  characters.clear();
  for (const char32_t character : *text) characters.push_back(EncodeUtf16(character));
  return Split(Alphabet::kUcs2, characters, options);
}

std::optional<std::vector<UserData>> SplitOctets(OctetSpan octets, const SplitOptions& options) {
  std::vector<Octets> single;
  single.reserve(octets.size());
  for (const std::uint8_t octet : octets) single.push_back({octet});
  return Split(Alphabet::kOctets, single, options);
}

}  // namespace gsm
