// SPDX-License-Identifier: MIT
// What every source of the add-in stands on.
#pragma once

#include <cstring>
#include <lua.hpp>
#include <string>

/// Marks an entry point of the add-in; everything else stays hidden.
#define CORVANE_FB_EXPORT extern "C" __attribute__((visibility("default")))
