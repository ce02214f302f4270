// SPDX-License-Identifier: MIT
// The runtime's log, captured for tests. Threads: any may log; the test's own thread reads.
#pragma once

#include <string>
#include <vector>

namespace test_support {

/// Sends everything that is logged to memory, at all levels.
void CaptureLog();

/// The lines logged since the last call, each as "level message".
std::vector<std::string> TakeLog();

}  // namespace test_support
