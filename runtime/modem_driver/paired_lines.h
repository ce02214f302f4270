// SPDX-License-Identifier: MIT
// An unsolicited line with a message or a report on the line after it: +CMT, +CDS, +CBM (3GPP TS
// 27.005 clauses 3.4.1 and 3.4.4). Another unsolicited line may come between the two, or cut the
// second one in two. Not synchronised.
#pragma once

#include <string>
#include <string_view>

namespace corvane {

class PairedLines {
 public:
  /// The first line, such as "+CDS: 25"; an earlier pair is forgotten.
  void Begin(std::string_view header);
  /// Another unsolicited line.
  void Interrupt() { interrupted_ = !pdu_.empty(); }
  /// Whether a line of no known kind belongs to the pair. If so, it is taken: the first one in any
  /// case, another one only if an unsolicited line has cut the first and it fits the announced
  /// length exactly.
  [[nodiscard]] bool Take(std::string_view line);
  void Clear() { *this = {}; }

  [[nodiscard]] const std::string& header() const { return header_; }  ///< empty: there is no pair
  [[nodiscard]] const std::string& pdu() const { return pdu_; }        ///< empty: not here yet
  /// The second line is shorter than announced: it was cut, or the modem counts wrong.
  [[nodiscard]] bool IsShort() const;

 private:
  std::string header_;
  std::string pdu_;
  bool interrupted_ = false;
};

}  // namespace corvane
