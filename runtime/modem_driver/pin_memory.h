// SPDX-License-Identifier: MIT
// Which PINs were sent to a SIM card and not accepted, so that none is sent twice: the third wrong
// one locks the card. Kept in a file of the program's state folder, across starts.
// Threads: any.
#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

/// Which PIN is meant for which card.
struct PinAttempt {
  std::string device;  ///< as the option --modem has it
  std::string sim;     ///< digits of the card's number; empty: the modem does not tell it
  std::string pin;
};

/// What became of it.
enum class PinEnd : std::uint8_t {
  kUnknown,  ///< it was sent, and no answer came: the power failed, or the modem was unplugged
  kRefused,
};

/// The file has a line for each PIN, with a digest in place of the PIN itself (yescrypt, salted). A
/// digest of four digits is found by trying, which takes minutes here instead of no time; what
/// protects it is that only its owner can read the file.
///
/// Two attempts are at the same card when its numbers are equal, or, where one is not known, the
/// devices are. A file that cannot be read or written is reported once; this run remembers all the
/// same.
class PinMemory {
 public:
  static constexpr std::size_t kMost = 32;  ///< PINs; the oldest is forgotten

  /// @param folder see StateFolder; empty: this run's memory alone
  explicit PinMemory(const std::filesystem::path& folder);

  /// Nothing: it was never sent, or accepted when it was sent last.
  [[nodiscard]] std::optional<PinEnd> Recall(const PinAttempt& attempt);
  void Remember(const PinAttempt& attempt, PinEnd end);
  void Forget(const PinAttempt& attempt);
  /// No PIN was ever refused, to whatever card.
  [[nodiscard]] bool IsEmpty();

  /// Empty: there is none.
  [[nodiscard]] const std::filesystem::path& file() const { return file_; }

 private:
  struct Entry {
    PinAttempt attempt;  // its PIN is empty if it comes from the file
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
