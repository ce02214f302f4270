// SPDX-License-Identifier: MIT
// Messages of a store as lines of text and as JSON. Threads: any.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "libs/messages/store_view.h"

namespace corvane::cli {

/// A message of a store, sent or received: one of both.
struct StoredMessage {
  std::optional<messages::Outgoing> outgoing;
  std::optional<messages::ListedIncoming> incoming;
};

/// "2026-11-22T14:05:00Z", or "-" for 0.
[[nodiscard]] std::string TimeText(messages::WallTime time);

/// A table with a heading, a line for each message.
[[nodiscard]] std::string ListText(const std::vector<StoredMessage>& list);
/// Everything about one message, a line for each thing.
[[nodiscard]] std::string DetailText(const StoredMessage& message);
/// `with_content`: also what is sent, and what has been done of it.
[[nodiscard]] nlohmann::ordered_json JsonOf(const StoredMessage& message, bool with_content);

}  // namespace corvane::cli
