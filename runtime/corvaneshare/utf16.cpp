// SPDX-License-Identifier: MIT
// UTF-8 to big-endian UTF-16.
#include "share/utf16.h"

#include <utf8.h>

#include <cstdint>

namespace {

constexpr int kFailure = -2;  // still negative when callers halve it

/// Writes code units while there is room.
class UnitWriter {
 public:
  UnitWriter(unsigned char* target, int capacity) : target_(target), left_(capacity) {}
  void Put(std::uint32_t unit) {
    if (left_ == 0) return;
    --left_;
    target_[written_++] = static_cast<unsigned char>(unit >> 8);
    target_[written_++] = static_cast<unsigned char>(unit & 0xFF);
  }
  [[nodiscard]] int written() const { return written_; }

 private:
  unsigned char* target_;
  int left_;
  int written_ = 0;
};

}  // namespace

int convert_utf8_to_utf16(const char* source, int length, unsigned char* target, int capacity,
                          int /*flags*/) {
  if (source == nullptr || target == nullptr || length < 0 || capacity < 0) return kFailure;
  const char* const end = source + length;
  // The whole text is checked, even beyond the capacity.
  if (!utf8::is_valid(source, end)) return kFailure;
  UnitWriter out(target, capacity);
  while (source != end) {
    const std::uint32_t code_point = utf8::unchecked::next(source);
    if (code_point < 0x10000) {
      out.Put(code_point);
    } else {
      out.Put(0xD800 + ((code_point - 0x10000) >> 10));
      out.Put(0xDC00 + ((code_point - 0x10000) & 0x3FF));
    }
  }
  return out.written();
}
