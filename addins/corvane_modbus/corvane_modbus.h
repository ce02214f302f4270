// SPDX-License-Identifier: MIT
// The add-in's entry points, called by the runtime that loads it.
#pragma once

#include "block/export.h"

/// Registers the block types with the runtime. Never fails. @return 0
CORVANE_FB_EXPORT int InitAddin();
/// Ends the requests to all servers, in at most a second, and logs writing that was under way.
CORVANE_FB_EXPORT void DisposeAddin();
