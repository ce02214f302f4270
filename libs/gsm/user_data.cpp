// SPDX-License-Identifier: MIT
#include "libs/gsm/user_data.h"

#include <utf8.h>

#include <algorithm>

#include "libs/gsm/hexadecimal.h"
#include "libs/gsm/septets.h"
#include "libs/gsm/seven_bit_text.h"
#include "libs/gsm/utf16.h"

namespace gsm {
namespace {

constexpr std::size_t kMostSeptets = 160;
constexpr std::size_t kMostOctets = 140;
constexpr std::size_t kMostParts = 255;

/// Where the first septet after a header of `octets` begins: on the next septet boundary.
unsigned FillBits(std::size_t octets) {
  return static_cast<unsigned>((7 - octets * 8 % 7) % 7);
}

std::size_t HeaderSeptets(std::size_t octets) {
  return (octets * 8 + 6) / 7;
}

Octets Payload(Alphabet alphabet, OctetSpan octets, std::size_t length, std::size_t header) {
  if (alphabet == Alphabet::kDefault) {
    return UnpackSeptets(octets.subspan(header), length - HeaderSeptets(header), FillBits(header));
  }
  const OctetSpan rest = octets.subspan(header);
  return {rest.begin(), rest.end()};
}

std::string PayloadText(Alphabet alphabet, OctetSpan payload, const Shifts& shifts) {
  switch (alphabet) {
    case Alphabet::kDefault: return DecodeSeptets(payload, shifts);
    case Alphabet::kOctets: return ToHexadecimal(payload);
    case Alphabet::kUcs2: return DecodeUtf16(payload);
  }
  return {};
}

/// Octets or septets that one part holds after a header of `header` octets.
std::size_t Capacity(Alphabet alphabet, std::size_t header) {
  if (alphabet == Alphabet::kDefault) return kMostSeptets - HeaderSeptets(header);
  const std::size_t octets = kMostOctets - header;
  return alphabet == Alphabet::kUcs2 ? octets / 2 * 2 : octets;
}

/// How much of what is left of a text goes into the next part: as much as fits, in whole
/// characters.
std::size_t NextCut(Alphabet alphabet, OctetSpan left, std::size_t capacity) {
  if (left.size() <= capacity) return left.size();
  const bool cuts_escape = alphabet == Alphabet::kDefault && left[capacity - 1] == kEscape;
  if (cuts_escape) return capacity - 1;
  const bool cuts_pair = alphabet == Alphabet::kUcs2 && (left[capacity - 2] & 0xFC) == 0xD8;
  return cuts_pair ? capacity - 2 : capacity;
}

/// The parts of a text that is already encoded.
std::optional<std::vector<UserData>> Split(Alphabet alphabet, OctetSpan text,
                                           const SplitOptions& options) {
  UserData part{alphabet, {}, {}};
  std::size_t capacity = Capacity(alphabet, 0);
  if (text.size() > capacity) {
    part.header.concatenation = Concatenation{options.reference, 1, 1, options.wide_reference};
    if (!options.wide_reference) part.header.concatenation->reference &= 0xFF;
    capacity = Capacity(alphabet, WriteHeader(part.header).size());
  }
  std::vector<UserData> parts;
  do {
    const std::size_t size = NextCut(alphabet, text, capacity);
    parts.push_back(part);
    parts.back().payload.assign(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(size));
    text = text.subspan(size);
  } while (!text.empty() && parts.size() < kMostParts);
  if (!text.empty()) return std::nullopt;
  for (std::size_t i = 0; i < parts.size() && parts[i].header.concatenation; ++i) {
    parts[i].header.concatenation->total = static_cast<std::uint8_t>(parts.size());
    parts[i].header.concatenation->sequence = static_cast<std::uint8_t>(i + 1);
  }
  return parts;
}

/// Valid UTF-8 in the default alphabet; nullopt if that lacks one of its characters.
std::optional<Octets> InDefaultAlphabet(std::string_view utf8) {
  Octets septets;
  septets.reserve(utf8.size());
  for (auto at = utf8.begin(); at != utf8.end();) {
    if (!AppendDefaultAlphabet(utf8::unchecked::next(at), septets)) return std::nullopt;
  }
  return septets;
}

Octets InUtf16(std::string_view utf8) {
  Octets octets;
  octets.reserve(2 * utf8.size());
  for (auto at = utf8.begin(); at != utf8.end();) AppendUtf16(utf8::unchecked::next(at), octets);
  return octets;
}

}  // namespace

UserData ReadUserData(OctetReader& in, std::uint8_t data_coding_scheme, bool has_header) {
  UserData data;
  data.alphabet = ReadDataCoding(data_coding_scheme).alphabet;
  // Compressed septets would be counted in octets, too.
  const bool septets = data.alphabet == Alphabet::kDefault;
  const std::size_t length = in.Next();
  if (length > (septets ? kMostSeptets : kMostOctets)) in.Refuse(PduError::kBadLength);
  const OctetSpan octets = in.Take(septets ? (length * 7 + 7) / 8 : length);
  if (in.error() != PduError::kNone) return data;
  std::size_t header_size = 0;
  if (has_header) {
    data.header_ignored = true;
    const std::size_t size = 1 + (octets.empty() ? std::size_t{0} : std::size_t{octets[0]});
    const bool fits = septets ? HeaderSeptets(size) <= length : size <= length;
    if (const auto header = fits ? ReadHeader(octets.subspan(1, size - 1)) : std::nullopt) {
      data.header_ignored = false;
      data.header = *header;
      header_size = size;
    }
  }
  data.payload = Payload(data.alphabet, octets, length, header_size);
  return data;
}

void WriteUserData(const UserData& data, Octets& out) {
  const Octets header = WriteHeader(data.header);
  const bool septets = data.alphabet == Alphabet::kDefault;
  const std::size_t length =
      data.payload.size() + (septets ? HeaderSeptets(header.size()) : header.size());
  out.push_back(static_cast<std::uint8_t>(length));
  out.insert(out.end(), header.begin(), header.end());
  const Octets payload =
      septets ? PackSeptets(data.payload, FillBits(header.size())) : data.payload;
  out.insert(out.end(), payload.begin(), payload.end());
}

std::string TextOf(std::span<const UserData> parts) {
  std::string text;
  while (!parts.empty()) {
    const UserData& first = parts.front();
    const auto end = std::find_if_not(parts.begin(), parts.end(), [&first](const UserData& part) {
      return part.alphabet == first.alphabet && part.header.shifts == first.header.shifts;
    });
    const auto count = static_cast<std::size_t>(end - parts.begin());
    Octets joined;
    for (const UserData& part : parts.first(count > 1 ? count : 0)) {
      joined.insert(joined.end(), part.payload.begin(), part.payload.end());
    }
    const Octets& payload = count > 1 ? joined : first.payload;
    text += PayloadText(first.alphabet, payload, first.header.shifts);
    parts = parts.subspan(count);
  }
  return text;
}

std::string TextOf(const UserData& part) {
  return TextOf({&part, 1});
}

std::optional<std::vector<UserData>> SplitText(std::string_view utf8, const SplitOptions& options) {
  constexpr std::size_t kMostOctetsOfACharacter = 3;  // of UTF-8, for each septet
  if (utf8.size() > kMostParts * kMostSeptets * kMostOctetsOfACharacter) return std::nullopt;
  if (!utf8::is_valid(utf8.begin(), utf8.end())) return std::nullopt;
  if (const auto septets = InDefaultAlphabet(utf8)) {
    return Split(Alphabet::kDefault, *septets, options);
  }
  return Split(Alphabet::kUcs2, InUtf16(utf8), options);
}

std::optional<std::vector<UserData>> SplitOctets(OctetSpan octets, const SplitOptions& options) {
  return Split(Alphabet::kOctets, octets, options);
}

}  // namespace gsm
