// SPDX-License-Identifier: MIT
// Turns the octets that come while an AT command runs into the command's answer (ITU-T V.250,
// 3GPP TS 27.005): no echo, no unsolicited lines, and complete when that is certain.
// Byte-fed, without I/O or clock; memory is bounded. Not synchronised.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "runtime/modem_driver/line_kind.h"
#include "runtime/modem_driver/modem_request.h"

namespace corvane {

/// The answer to one request.
///
/// Its text is made of the lines that begin with the command's own name, the PDU line after each
/// list header, the prompt and the final result, each line with CR LF, without empty lines, and in
/// the standard form ("+CMGL: 1,...", "+CMS ERROR: 500") also where the modem leaves the blank out.
/// An unsolicited line is taken out wherever it comes, also where it splits a PDU in two. A PDU
/// line ends where its PDU does (see PduEnd). A header without a PDU is followed by an empty line,
/// so that its empty PDU reaches the reader of the list.
class AtAnswer {
 public:
  enum class State : std::uint8_t {
    kOpen,       ///< more is to come
    kFinal,      ///< a final result line ended it
    kPrompt,     ///< the modem waits for text
    kTooLong,    ///< a line or the whole is longer than any answer can be
    kRestarted,  ///< the modem has restarted: nothing more comes
  };

  static constexpr std::size_t kMaxLine = 2048;
  static constexpr std::size_t kMaxText = std::size_t{8} << 20;
  static constexpr std::size_t kMaxUnknown = 4096;

  /// Called with each line that is not part of the answer and no echo, and its kind.
  using ForeignLine = std::function<void(std::string_view line, LineKind kind)>;

  /// @param request borrowed: must outlive this
  AtAnswer(const ModemRequest& request, ForeignLine foreign_line);

  /// Takes the next octet; none after the state has left kOpen.
  State Feed(char octet);
  /// Nothing more comes: a last line without its end counts, a list entry that is not there in full
  /// does not.
  State End();

  [[nodiscard]] State state() const { return state_; }
  /// What is handed to the client. Before the end was certain: the lines of the answer so far, or,
  /// where there are none, unknown lines as they came, so that it can say that they make no sense.
  /// Not those after a list or a text: noise would be read as a message, or as its confirmation.
  /// Empty: nothing came.
  [[nodiscard]] std::string& text() { return text_; }
  /// The final result line as it came, empty while there is none.
  [[nodiscard]] const std::string& final_line() const { return final_; }
  [[nodiscard]] LineKind final_kind() const { return final_kind_; }
  /// The number of own lines.
  [[nodiscard]] std::size_t lines() const { return own_lines_; }
  /// The number of octets in own lines, those of an entry included that is still coming.
  [[nodiscard]] std::size_t octets() const;
  /// The request came back from the modem.
  [[nodiscard]] bool echoed() const { return echoed_; }

 private:
  void TakeLine();
  void TakeWholeLine(std::string_view line);
  void TakeOwnLine(std::string_view line);
  bool TakePduPart(std::string_view line);
  void TakeOtherLine(std::string_view line, LineKind kind);
  void TakeFinal(std::string_view line, LineKind kind);
  /// Writes the list entry that is waiting for its PDU; `complete`: an empty PDU is one, too.
  void CloseEntry(bool complete);
  /// The same where nothing more comes: an entry that is not there in full is dropped.
  void CloseCutEntry();
  void Append(std::string_view line);
  [[nodiscard]] bool IsOwn(std::string_view line) const;
  [[nodiscard]] bool IsEcho(std::string_view line) const;
  [[nodiscard]] bool IsPromptAllowed() const;

  std::string_view sent_;  // without its end
  std::string_view own_name_;
  RequestKind kind_;
  ForeignLine foreign_line_;
  State state_ = State::kOpen;

  std::string line_;     // octets since the last line end
  std::string text_;     // see text()
  std::string header_;   // of the entry whose PDU is to come; empty: none
  std::string pdu_;      // its PDU so far
  std::string body_;     // other lines after the header: its text, unless a PDU follows
  std::string unknown_;  // lines that are neither of the answer nor known
  std::string final_;
  LineKind final_kind_ = LineKind::kUnknown;
  std::size_t own_lines_ = 0;
  bool swallow_next_ = false;  // the next line belongs to an unsolicited one
  bool late_result_ = false;   // an earlier text was confirmed; its OK is still to come
  bool echoed_ = false;
};

}  // namespace corvane
