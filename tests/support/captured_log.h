// SPDX-License-Identifier: MIT
// The runtime's log as a test sees it. Threads: any may log; the test's own thread reads.
#pragma once

#include <string>
#include <vector>

namespace test_support {

/// Lets everything that is logged go to memory, with all levels.
void CaptureLog();

/// The lines logged since the last call, each as "level message".
std::vector<std::string> TakeLog();

}  // namespace test_support
