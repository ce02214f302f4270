// SPDX-License-Identifier: MIT
// Compiles the common header on its own.
#include "addins/corvane_fb_lib/stdafx.h"
