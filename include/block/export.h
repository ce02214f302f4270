// SPDX-License-Identifier: MIT
// What an add-in exports to the runtime that loads it.
#pragma once

/// Marks an entry point of an add-in that is compiled with hidden visibility; everything else stays
/// inside.
#define CORVANE_FB_EXPORT extern "C" __attribute__((visibility("default")))
