// SPDX-License-Identifier: MIT
// SMS-DELIVER decoding of any octets, compared with a decoder that reads the PDU from its front,
// and texts bit by bit. UCS-2 is encoded again by the runtime's encoder.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "addins/corvane_fb_lib/sms_delivered.h"
#include "fuzz/require.h"
#include "share/file_time.h"
#include "share/utf16.h"

namespace {

using Octets = std::vector<unsigned char>;
using sms::SMSDelivered;

/// Thrown where the PDU ends too early.
struct Truncated {};

/// The octets that have not been read yet.
class Rest {
 public:
  explicit Rest(const Octets& octets) : octets_(octets) {}
  unsigned Octet() { return Take(1)[0]; }
  Octets Take(std::size_t count) {
    if (count > octets_.size()) throw Truncated();
    const auto end = octets_.begin() + static_cast<std::ptrdiff_t>(count);
    Octets taken(octets_.begin(), end);
    octets_.erase(octets_.begin(), end);
    return taken;
  }
  [[nodiscard]] const Octets& octets() const { return octets_; }

 private:
  Octets octets_;
};

/// As many septets as fit into the octets; bit 7n is the lowest of septet n.
std::string Septets(const Octets& octets) {
  std::string text(octets.size() * 8 / 7, '\0');
  for (std::size_t bit = 0; bit < text.size() * 7; ++bit) {
    const int value = octets[bit / 8] >> (bit % 8) & 1;
    text[bit / 7] = static_cast<char>(text[bit / 7] | value << (bit % 7));
  }
  return text;
}

std::string Number(Rest& rest) {
  const unsigned length = rest.Octet();
  const unsigned type = rest.Octet();
  if (type == 0xD0) {
    return Septets(rest.Take(std::min<std::size_t>(length * 4 / 7, rest.octets().size())));
  }
  std::string number = type == 0x91 ? "+" : "";
  for (unsigned left = type == 0x81 ? length / 2 : length; left > 0; --left) {
    if (rest.octets().empty()) break;
    const unsigned octet = rest.Octet();
    number += static_cast<char>('0' + octet % 16);
    if (octet / 16 == 15) break;
    number += static_cast<char>('0' + octet / 16);
  }
  return number;
}

std::int64_t Time(const Octets& stamp) {
  std::uint16_t fields[6];
  for (std::size_t i = 0; i < 6; ++i) {
    fields[i] = static_cast<std::uint16_t>(stamp[i] % 16 * 10 + stamp[i] / 16);
  }
  const auto year = static_cast<std::uint16_t>(2000 + fields[0]);
  const RTime time{year, fields[1], fields[2], fields[3], fields[4], fields[5], 0};
  return RTimeToFileTime(&time);
}

/// Reads from the coding scheme up to the text. @return the coding scheme
unsigned ReadAfterProtocol(Rest& rest, bool has_header, SMSDelivered& message) {
  const unsigned coding = rest.Octet();
  const Octets stamp = rest.Take(7);
  rest.Octet();
  message.time = Time(stamp);
  if (has_header) {
    const Octets header = rest.Take(6);
    message.ref = header[3];
    message.total = header[4];
    message.seq = header[5];
  }
  return coding;
}

/// All that decode() returns except the text of UCS-2. @return whether the text is UCS-2
bool Read(Rest& rest, SMSDelivered& message) {
  const unsigned service_centre = rest.Octet();
  message.status = 5;
  if (service_centre >= 0x80) return false;
  rest.Take(service_centre);
  const unsigned first_octet = rest.Octet();
  message.text = "The pdu parameter is not an SMS-DELIVER PDU.";
  if (first_octet % 2 != 0) return false;
  if (rest.octets().size() < 2) throw Truncated();
  message.number = Number(rest);
  message.text = "The PDU's TP-PID field must have the value 0x00.";
  if (rest.Octet() != 0) return false;
  const unsigned coding = ReadAfterProtocol(rest, (first_octet & 0x40) != 0, message);
  message.status = 0;
  message.text = coding == 0x00   ? Septets(rest.octets())
                 : coding == 0x04 ? "Can't read Data value"
                                  : std::string();
  return coding == 0x08;
}

/// The text, encoded again, equals the user data without the units that are not characters in
/// UCS-2.
void CheckUcs2(const std::string& text, const Octets& user_data) {
  if (user_data.size() % 2 != 0) return Require(text == "ERROR PARSE PDU");
  Octets expected;
  for (std::size_t i = 0; i < user_data.size(); i += 2) {
    const unsigned unit = user_data[i] * 256u + user_data[i + 1];
    if ((unit >= 0xD800 && unit <= 0xDFFF) || unit == 0xFFFF) continue;
    expected.insert(expected.end(), {user_data[i], user_data[i + 1]});
  }
  Octets encoded(user_data.size() + 2);
  const int length = convert_utf8_to_utf16(text.data(), static_cast<int>(text.size()),
                                           encoded.data(), static_cast<int>(encoded.size() / 2), 0);
  Require(length == static_cast<int>(expected.size()));
  encoded.resize(expected.size());
  Require(encoded == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Octets pdu(data, data + size);
  SMSDelivered message(1);
  message.decode(pdu);
  Require(message.storageIndex == 1);
  if (pdu.empty()) return 0;

  SMSDelivered expected(1);
  Rest rest(pdu);
  bool is_ucs2 = false;
  try {
    is_ucs2 = Read(rest, expected);
  } catch (const Truncated&) {
    expected.text = "The PDU is truncated.";
  }
  Require(message.status == expected.status && message.number == expected.number);
  Require(message.time == expected.time && message.ref == expected.ref);
  Require(message.total == expected.total && message.seq == expected.seq);
  if (is_ucs2) {
    CheckUcs2(message.text, rest.octets());
  } else {
    Require(message.text == expected.text);
  }
  return 0;
}
