// SPDX-License-Identifier: MIT
// The entry points of an add-in with one block type.
#include "block/block_types.h"
#include "counter_fb.h"

constexpr FBTypeEntry kBlockTypes[] = {
    BLOCK_TYPE(CounterFB),  // COUNTER
};

CORVANE_FB_EXPORT int InitAddin() {
  RegisterBlockTypes(kBlockTypes);
  return 0;
}

CORVANE_FB_EXPORT void DisposeAddin() {}
