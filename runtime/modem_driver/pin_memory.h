// SPDX-License-Identifier: MIT
// The PINs that were sent to a SIM card and not accepted, so that none is sent twice: the third
// wrong one locks the card. They are kept across starts, in a file in the program's state folder.
// Threads: any.
#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

/// A PIN and the card that it is for.
struct PinAttempt {
  std::string device;  ///< as given in the option --modem
  std::string sim;     ///< digits of the card's number; empty: the modem does not report it
  std::string pin;
};

/// What became of the PIN.
enum class PinEnd : std::uint8_t {
  kUnknown,  ///< it was sent, and no answer came: the power failed, or the modem was unplugged
  kRefused,
};

/// The file has a line for each PIN, with a digest in place of the PIN itself (yescrypt, salted).
/// Four digits can be found from a digest by trying; this digest only makes that take minutes. The
/// real protection is that only its owner can read the file.
///
/// Two attempts are at the same card if the card numbers are equal or, where one is not known, the
/// devices are. A file that cannot be read or written is reported once; this run still remembers.
class PinMemory {
 public:
  static constexpr std::size_t kMost = 32;  ///< PINs; then the oldest is forgotten

  /// @param folder see StateFolder; empty: only this run remembers
  explicit PinMemory(const std::filesystem::path& folder);

  /// nullopt: the PIN was never sent, or was accepted the last time.
  [[nodiscard]] std::optional<PinEnd> Recall(const PinAttempt& attempt);
  void Remember(const PinAttempt& attempt, PinEnd end);
  void Forget(const PinAttempt& attempt);
  /// No PIN was ever refused, for any card.
  [[nodiscard]] bool IsEmpty();

  /// Empty: there is no file.
  [[nodiscard]] const std::filesystem::path& file() const { return file_; }

 private:
  struct Entry {
    PinAttempt attempt;  // without its PIN if it comes from the file
    std::string digest;  // empty: not yet made
    PinEnd end;
  };

  void Load();
  void Store();
  [[nodiscard]] static bool IsSame(const Entry& entry, const PinAttempt& attempt);
  void Report(const std::string& what);

  const std::filesystem::path file_;
  std::mutex mutex_;
  std::vector<Entry> entries_;  // guarded by mutex_, the oldest first
  bool loaded_ = false;         // guarded by mutex_
  bool reported_ = false;       // guarded by mutex_
};

}  // namespace corvane
