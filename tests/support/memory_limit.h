// SPDX-License-Identifier: MIT
// Makes `new` fail, where memory cannot really be used up. A program that links this has its
// operator new in place of the C++ library's, in the libraries it loads, too.
#pragma once

#include <cstddef>

namespace test_support {

/// While it lives, `new` throws std::bad_alloc for more than so many bytes at once. Only the thread
/// that made it is concerned.
class MemoryLimit {
 public:
  explicit MemoryLimit(std::size_t bytes);
  MemoryLimit(const MemoryLimit&) = delete;
  MemoryLimit& operator=(const MemoryLimit&) = delete;
  ~MemoryLimit();
};

}  // namespace test_support
