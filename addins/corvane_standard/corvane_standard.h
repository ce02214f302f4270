// SPDX-License-Identifier: MIT
// The add-in's entry points, called by the runtime that loads it.
#pragma once

#include "block/export.h"

/// Registers the block types with the runtime. Never fails. @return 0
CORVANE_FB_EXPORT int InitAddin();
/// Nothing is left to end.
CORVANE_FB_EXPORT void DisposeAddin();
