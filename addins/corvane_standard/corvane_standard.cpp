// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/corvane_standard.h"

#include "addins/corvane_standard/block_types.h"

int InitAddin() {
  RegisterBlockTypes(corvane_standard::kBlockTypes);
  return 0;
}

void DisposeAddin() {}
