// SPDX-License-Identifier: MIT
// The Lua files of this folder, as text. Constant data.
#pragma once

#include <cstddef>

namespace corvane::program_test {

extern const char kTestApi[];
extern const std::size_t kTestApiSize;
extern const char kProgramEnvironment[];
extern const std::size_t kProgramEnvironmentSize;

}  // namespace corvane::program_test
