// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/corvane_fb_lib.h"

#include "addins/corvane_fb_lib/block_types.h"

int InitAddin() {
  RegisterBlockTypes(kBlockTypes);
  return 0;
}

void DisposeAddin() {}
