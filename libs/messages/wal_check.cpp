// SPDX-License-Identifier: MIT
#include "libs/messages/wal_check.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <span>
#include <system_error>
#include <vector>

namespace messages {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kHeaderSize = 32;
constexpr std::size_t kFrameHeaderSize = 24;
constexpr std::uint32_t kMagic = 0x377f0682;  // its lowest bit: words of checksums are big-endian
constexpr std::uint32_t kMostPageSize = 65536;

using Octets = std::span<const unsigned char>;

std::uint32_t BigEndian(Octets from, std::size_t at) {
  return (static_cast<std::uint32_t>(from[at]) << 24U) |
         (static_cast<std::uint32_t>(from[at + 1]) << 16U) |
         (static_cast<std::uint32_t>(from[at + 2]) << 8U) | from[at + 3];
}

/// The running checksum of a log.
class Checksum {
 public:
  explicit Checksum(bool big_endian) : big_endian_(big_endian) {}

  void Add(Octets octets) {
    for (std::size_t at = 0; at + 8 <= octets.size(); at += 8) {
      first_ += Word(octets, at) + second_;
      second_ += Word(octets, at + 4) + first_;
    }
  }
  /// Whether it is what is written there.
  [[nodiscard]] bool IsAt(Octets octets, std::size_t at) const {
    return BigEndian(octets, at) == first_ && BigEndian(octets, at + 4) == second_;
  }

 private:
  [[nodiscard]] std::uint32_t Word(Octets from, std::size_t at) const {
    const std::uint32_t word = BigEndian(from, at);
    return big_endian_ ? word : __builtin_bswap32(word);
  }

  bool big_endian_;
  std::uint32_t first_ = 0;
  std::uint32_t second_ = 0;
};

bool Read(std::ifstream& in, std::span<unsigned char> to) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): what streams take
  in.read(reinterpret_cast<char*>(to.data()), static_cast<std::streamsize>(to.size()));
  return static_cast<std::size_t>(in.gcount()) == to.size();
}

/// Transactions whose last frame comes after the first wrong checksum.
int CommitsAfterDamage(std::ifstream& in, Octets header, Checksum sum) {
  std::vector<unsigned char> frame(kFrameHeaderSize + BigEndian(header, 8));
  bool intact = true;
  int commits = 0;
  while (Read(in, frame)) {
    // Frames with other salts are what an earlier, longer log left in the file.
    if (BigEndian(frame, 8) != BigEndian(header, 16)) continue;
    if (BigEndian(frame, 12) != BigEndian(header, 20)) continue;
    sum.Add(Octets(frame).first(8));
    sum.Add(Octets(frame).subspan(kFrameHeaderSize));
    intact = intact && sum.IsAt(frame, 16);
    if (!intact && BigEndian(frame, 4) != 0) ++commits;
  }
  return commits;
}

}  // namespace

bool LostTransactions(const fs::path& log) {
  if (!fs::exists(log) || fs::file_size(log) == 0) return false;
  std::ifstream in(log, std::ios::binary);
  if (!in) throw fs::filesystem_error("cannot read", log, {errno, std::generic_category()});
  std::array<unsigned char, kHeaderSize> header{};
  if (!Read(in, header)) return false;  // the first transaction was being written
  const std::uint32_t magic = BigEndian(header, 0);
  Checksum sum((magic & 1U) != 0);
  sum.Add(Octets(header).first(24));
  const bool is_header =
      (magic & ~1U) == kMagic && sum.IsAt(header, 24) && BigEndian(header, 8) <= kMostPageSize;
  // The header is synchronised before the first frame is written.
  if (!is_header) return fs::file_size(log) > kHeaderSize;
  // The last transaction may have been interrupted; those before it had been synchronised.
  return CommitsAfterDamage(in, header, sum) > 1;
}

}  // namespace messages
