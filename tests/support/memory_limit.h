// SPDX-License-Identifier: MIT
// Makes `new` fail, since a test cannot really use up the memory. In a program that links this, its
// operator new replaces the C++ library's, also in the libraries that the program loads.
#pragma once

#include <cstddef>

namespace test_support {

/// While it exists, `new` throws std::bad_alloc for more than `bytes` at once, but only in the
/// thread that created it.
class MemoryLimit {
 public:
  explicit MemoryLimit(std::size_t bytes);
  MemoryLimit(const MemoryLimit&) = delete;
  MemoryLimit& operator=(const MemoryLimit&) = delete;
  ~MemoryLimit();
};

}  // namespace test_support
