// SPDX-License-Identifier: MIT
// The add-in's entry points, called by the runtime that loads it.
#pragma once

#include "block/export.h"

/// Registers the block types with the runtime, and begins to send what the running program's store
/// has. Never fails. @return 0
CORVANE_FB_EXPORT int InitAddin();
/// Ends the thread of mails, in at most a second, and logs what still waits.
CORVANE_FB_EXPORT void DisposeAddin();
