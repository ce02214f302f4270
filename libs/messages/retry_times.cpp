// SPDX-License-Identifier: MIT
#include "libs/messages/retry_times.h"

#include <algorithm>
#include <array>

namespace messages {

std::chrono::seconds RetryDelay(int failures) noexcept {
  using std::chrono::minutes;
  using std::chrono::seconds;
  constexpr std::array<seconds, 7> kDelays = {seconds(15), seconds(30), minutes(1), minutes(2),
                                              minutes(4),  minutes(8),  minutes(15)};
  const int last = static_cast<int>(kDelays.size()) - 1;
  return kDelays[static_cast<std::size_t>(std::clamp(failures - 1, 0, last))];
}

}  // namespace messages
