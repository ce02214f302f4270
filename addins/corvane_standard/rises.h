// SPDX-License-Identifier: MIT
// Rising edges of an input, remembered across a restart where the block is retained. Threads: as
// the block.
#pragma once

#include "block/typed_variable.h"

namespace corvane_standard {

/// Whether an input has risen since the previous call. `last` has its value in that call, FALSE
/// before the first one, and gets the one of this call.
inline bool Rises(BoolVariable& last, bool value) {
  const bool rises = value && !last.Get();
  last.Set(value);
  return rises;
}

}  // namespace corvane_standard
