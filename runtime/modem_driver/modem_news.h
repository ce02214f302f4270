// SPDX-License-Identifier: MIT
// What a modem says on its own and clients may want to hear: announcements of messages and reports,
// messages and reports themselves, and that the modem has lost its settings. Kept until the port
// has time to tell its clients. Threads: the port's own.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/modem_driver/line_kind.h"
#include "runtime/modem_driver/modem_times.h"
#include "runtime/modem_driver/paired_lines.h"
#include "runtime/modem_driver/wait_loop.h"

namespace corvane {

/// See PortDriverLineFunction.
struct ModemNewsItem {
  std::string line;
  std::string pdu;
};

class ModemNews {
 public:
  static constexpr std::size_t kMost = 100;
  static constexpr std::size_t kMaxLine = 256;   ///< of an announcement; no standard one is longer
  static constexpr std::size_t kMaxPdu = 1'024;  ///< the longest real one has about 400 characters

  /// @param patience how long the second half of what was cut may take to follow
  explicit ModemNews(ModemTimes::Time patience) : patience_(patience) {}

  /// A whole line that belongs to no answer.
  void Take(std::string_view line, LineKind kind, SteadyTime now);
  /// The modem has the settings of its start. What it had not said completely never comes.
  void NoteStart();

  /// There is something to tell now.
  [[nodiscard]] bool any(SteadyTime now) const { return !items_.empty() || IsRipe(now); }
  /// All of it, in the order in which it came.
  [[nodiscard]] std::vector<ModemNewsItem> TakeAll(SteadyTime now);
  /// How much was dropped since the last call, because more than kMost came at once.
  [[nodiscard]] std::size_t TakeDropped();

 private:
  [[nodiscard]] bool IsRipe(SteadyTime now) const;
  void ClosePair();
  void Add(std::string_view line, std::string_view pdu);

  ModemTimes::Time patience_;
  std::vector<ModemNewsItem> items_;
  std::size_t dropped_ = 0;
  PairedLines pair_;
  SteadyTime paired_;  // when its last line came
};

}  // namespace corvane
