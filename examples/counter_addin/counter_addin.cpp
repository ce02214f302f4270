// SPDX-License-Identifier: MIT
// The entry points of an add-in with one block type.
#include "examples/counter_addin/counter_fb.h"

CORVANE_FB_EXPORT int InitAddin() {
  return RegisterSTLibsCounterFB();
}

CORVANE_FB_EXPORT void DisposeAddin() {}
