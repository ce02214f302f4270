// SPDX-License-Identifier: MIT
// The time of day where the machine is: the zone of TZ, or of /etc/localtime. Threads: any; the
// zone is read by the first use.
#pragma once

#include <cstdint>

namespace corvane_standard {

/// Seconds by which local time is ahead of UTC at this point, in seconds since 1970-01-01 UTC; 0
/// for a year that the system cannot count.
[[nodiscard]] std::int64_t OffsetAt(std::int64_t utc);

/// The first point at which local clocks show this time or, where clocks are put forward over it, a
/// later one: of a time that comes twice the first, of one that does not exist the moment of the
/// change.
/// @param local what a clock on the wall shows, in seconds since its 1970-01-01 00:00
[[nodiscard]] std::int64_t FirstPointOf(std::int64_t local);

}  // namespace corvane_standard
