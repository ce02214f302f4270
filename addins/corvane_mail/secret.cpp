// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/secret.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace corvane_mail {

LockedMemory::LockedMemory(std::size_t size) : size_(size) {
  // A mapping of its own: these protections hold for whole pages. mmap refuses a length of 0.
  void* const memory = mmap(nullptr, std::max<std::size_t>(size, 1), PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  data_ = static_cast<char*>(memory);
  mlock(memory, size);
  madvise(memory, size, MADV_DONTDUMP);
  madvise(memory, size, MADV_WIPEONFORK);
}

LockedMemory::~LockedMemory() {
  if (data_ == nullptr) return;
  Wipe(octets());
  munmap(data_, std::max<std::size_t>(size_, 1));  // unlocks, too
}

Secret::Secret(std::string_view text) : memory_(text.size()) {
  std::copy(text.begin(), text.end(), memory_.octets().begin());
}

void Wipe(std::span<char> octets) noexcept {
  explicit_bzero(octets.data(), octets.size());
}

}  // namespace corvane_mail
