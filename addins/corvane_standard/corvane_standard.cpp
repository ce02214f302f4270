// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/corvane_standard.h"

#include "addins/corvane_standard/block_types.h"
#include "addins/corvane_standard/process_runner.h"

int InitAddin() {
  RegisterBlockTypes(corvane_standard::kBlockTypes);
  return 0;
}

void DisposeAddin() {
  corvane_standard::ProcessRunner::End();
}
