// SPDX-License-Identifier: MIT
// Turns the octets that arrive while an AT command runs into the command's answer (ITU-T V.250,
// 3GPP TS 27.005), without echo and unsolicited lines, and detects when it is certainly complete.
// Fed byte by byte, without I/O or a clock; memory is bounded. Not synchronised.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "runtime/modem_driver/line_kind.h"
#include "runtime/modem_driver/modem_request.h"
#include "runtime/modem_driver/paired_lines.h"

namespace corvane {

/// The answer to one request.
///
/// Its text consists of the lines that begin with the command's own name, the PDU line after each
/// list header, the prompt and the final result, each line with CR LF, without empty lines, and in
/// the standard form ("+CMGL: 1,...", "+CMS ERROR: 500") even if the modem leaves the blank out. An
/// unsolicited line is removed wherever it appears, even where it splits a PDU in two. A PDU
/// line ends where its PDU does (see PduEnd). A header without a PDU is followed by an empty line,
/// so that its empty PDU reaches the reader of the list.
class AtAnswer {
 public:
  enum class State : std::uint8_t {
    kOpen,       ///< more is expected
    kFinal,      ///< a final result line ended it
    kPrompt,     ///< the modem waits for text
    kTooLong,    ///< a line, or the whole answer, is longer than any answer can be
    kRestarted,  ///< the modem has restarted: nothing more will come
  };

  static constexpr std::size_t kMaxLine = 2048;
  static constexpr std::size_t kMaxText = std::size_t{8} << 20;
  static constexpr std::size_t kMaxUnknown = 4096;

  /// Called with each line that is neither part of the answer nor an echo, and with its kind.
  using ForeignLine = std::function<void(std::string_view line, LineKind kind)>;

  /// @param request borrowed: must outlive this object
  AtAnswer(const ModemRequest& request, ForeignLine foreign_line);

  /// Takes the next octet; octets after the state has left kOpen have no effect.
  State Feed(char octet);
  /// Nothing more comes: a last line without its line end counts, an incomplete list entry does
  /// not. An unsolicited line without its line end is not reported: see line().
  State End();

  [[nodiscard]] State state() const { return state_; }
  /// What the client gets. Before the end is certain: the lines of the answer so far or, if there
  /// are none, the unknown lines as they came, so that the client can report that they make no
  /// sense. Unknown lines are not handed over for a list or a text, since noise would be read as a
  /// message, or as a confirmation. Empty: nothing came.
  [[nodiscard]] std::string& text() { return text_; }
  /// The final result line as it came; empty while there is none.
  [[nodiscard]] const std::string& final_line() const { return final_; }
  [[nodiscard]] LineKind final_kind() const { return final_kind_; }
  /// The number of lines that belong to the answer.
  [[nodiscard]] std::size_t lines() const { return own_lines_; }
  /// The number of octets in these lines, including an entry that is still arriving.
  [[nodiscard]] std::size_t octets() const;
  /// The octets since the last line end, before End(). What is left of an answer may be the
  /// beginning of an unsolicited line.
  [[nodiscard]] const std::string& line() const { return line_; }
  /// Whether the modem has echoed the request.
  [[nodiscard]] bool echoed() const { return echoed_; }

 private:
  void TakeLine();
  void TakeWholeLine(std::string_view line);
  void TakeOwnLine(std::string_view line);
  bool TakePduPart(std::string_view line);
  void TakeOtherLine(std::string_view line, LineKind kind);
  void TakeFinal(std::string_view line, LineKind kind);
  /// Writes the list entry that is waiting for its PDU; `complete`: an empty PDU counts, too.
  void CloseEntry(bool complete);
  /// The same when nothing more comes: an incomplete entry is dropped.
  void CloseCutEntry();
  void Append(std::string_view line);
  void ReportForeign(std::string_view line, LineKind kind);
  [[nodiscard]] bool IsOwn(std::string_view line) const;
  [[nodiscard]] bool IsEcho(std::string_view line) const;
  [[nodiscard]] bool IsPromptAllowed() const;

  std::string_view sent_;  // without its line end
  std::string_view own_name_;
  RequestKind kind_;
  ForeignLine foreign_line_;
  State state_ = State::kOpen;

  std::string line_;     // octets since the last line end
  std::string text_;     // see text()
  std::string header_;   // of the entry whose PDU is still to come; empty: none
  std::string pdu_;      // its PDU so far
  std::string body_;     // other lines after the header: its text, unless a PDU follows
  std::string unknown_;  // lines that are neither part of the answer nor known
  std::string final_;
  LineKind final_kind_ = LineKind::kUnknown;
  std::size_t own_lines_ = 0;
  PairedLines pair_;          // unsolicited lines whose second one is still to come
  bool late_result_ = false;  // an earlier text was confirmed; its OK is still to come
  bool echoed_ = false;
  bool ended_ = false;  // the last line has no line end
};

}  // namespace corvane
