// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/local_time.h"

#include <ctime>

namespace corvane_standard {

std::int64_t OffsetAt(std::int64_t utc) {
  const auto time = static_cast<std::time_t>(utc);
  std::tm local{};
  return localtime_r(&time, &local) == nullptr ? 0 : local.tm_gmtoff;
}

std::int64_t FirstPointOf(std::int64_t local) {
  // No zone is further than a day from UTC, and none changes its offset twice within two days.
  constexpr std::int64_t kDay = 86400;
  const std::int64_t before = OffsetAt(local - kDay);
  const std::int64_t after = OffsetAt(local + kDay);
  const std::int64_t first = local - before;
  if (before == after || OffsetAt(first) == before) return first;
  const std::int64_t second = local - after;
  if (OffsetAt(second) == after) return second;
  // The change is after `second`, and not after `first`.
  std::int64_t still_before = second;
  std::int64_t change = first;
  while (change - still_before > 1) {
    const std::int64_t middle = still_before + (change - still_before) / 2;
    (OffsetAt(middle) == before ? still_before : change) = middle;
  }
  return change;
}

}  // namespace corvane_standard
