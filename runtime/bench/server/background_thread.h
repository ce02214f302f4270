// SPDX-License-Identifier: MIT
// What the bench's threads have in common.
#pragma once

namespace corvane::bench {

/// Prepares the calling thread: its name; no signals, which are for the other threads; and it gives
/// way to the PLC task, whose real-time priority it must not have inherited.
void BecomeBackgroundThread(const char* name);

}  // namespace corvane::bench
