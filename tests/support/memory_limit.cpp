// SPDX-License-Identifier: MIT
#include "tests/support/memory_limit.h"

#include <cstdlib>
#include <limits>
#include <new>

namespace {

thread_local std::size_t limit = std::numeric_limits<std::size_t>::max();

void* Allocate(std::size_t size) noexcept {
  return size > limit ? nullptr : std::malloc(size);
}

}  // namespace

namespace test_support {

MemoryLimit::MemoryLimit(std::size_t bytes) {
  limit = bytes;
}

MemoryLimit::~MemoryLimit() {
  limit = std::numeric_limits<std::size_t>::max();
}

}  // namespace test_support

void* operator new(std::size_t size) {
  void* const memory = Allocate(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return Allocate(size == 0 ? 1 : size);
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
  std::free(memory);
}
