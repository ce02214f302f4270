// SPDX-License-Identifier: MIT
// A request about a store whose program does not run. Threads: that of the store.
#pragma once

#include "libs/messages/now.h"
#include "libs/messages/row.h"
#include "libs/messages/store_view.h"

namespace messages {

/// Does what the program would do, and writes it. The caller holds the StoreLock.
/// @throws SQLite::Exception
AnswerRequest CarryOut(StoreView& store, const Request& request, const Now& now);

}  // namespace messages
