// SPDX-License-Identifier: MIT
// The add-in's entry points, called by the runtime that loads it.
#pragma once

#include "block/export.h"

/// Registers the block types with the runtime. Never fails. @return 0
CORVANE_FB_EXPORT int InitAddin();
/// Ends the processes of PROCESS, with all that they have started, in at most a second.
CORVANE_FB_EXPORT void DisposeAddin();
