// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/pin_memory.h"

#include <crypt.h>
#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <memory>
#include <sstream>
#include <system_error>

#include "runtime/corvane/state_folder.h"

namespace corvane {
namespace {

constexpr const char* kFileName = "refused-pins";
constexpr const char* kHead =
    "# SIM PINs that were not accepted; delete a line, and its PIN is sent "
    "again.\n";
constexpr const char* kNoSim = "-";
constexpr int kMaxLine = 4096;

/// Uses the salt and the cost in `setting`, which may be an earlier digest; empty: it cannot be
/// made.
std::string Crypt(const std::string& text, const std::string& setting) {
  const auto data = std::make_unique<crypt_data>();  // 32 KB
  const char* const digest = crypt_r(text.c_str(), setting.c_str(), data.get());
  return digest == nullptr || *digest == '*' ? "" : digest;
}

std::string Digest(const std::string& pin) {
  char setting[CRYPT_GENSALT_OUTPUT_SIZE];
  const char* const made = crypt_gensalt_rn("$y$", 0, nullptr, 0, setting, sizeof setting);
  return made == nullptr ? "" : Crypt(pin, made);
}

const char* Name(PinEnd end) {
  switch (end) {
    case PinEnd::kUnknown: return "unanswered";
    case PinEnd::kRefused: return "refused";
  }
  return "?";
}

}  // namespace

PinMemory::PinMemory(const std::filesystem::path& folder)
    : file_(folder.empty() ? folder : folder / kFileName) {}

std::optional<PinEnd> PinMemory::Recall(const PinAttempt& attempt) {
  const std::lock_guard guard(mutex_);
  Load();
  const auto found =
      std::find_if(entries_.rbegin(), entries_.rend(),
                   [&attempt](const Entry& entry) { return IsSame(entry, attempt); });
  return found == entries_.rend() ? std::nullopt : std::optional(found->end);
}

void PinMemory::Remember(const PinAttempt& attempt, PinEnd end) {
  const std::lock_guard guard(mutex_);
  Load();
  std::erase_if(entries_, [&attempt](const Entry& entry) { return IsSame(entry, attempt); });
  if (entries_.size() >= kMost) entries_.erase(entries_.begin());
  entries_.push_back({attempt, file_.empty() ? "" : Digest(attempt.pin), end});
  Store();
}

void PinMemory::Forget(const PinAttempt& attempt) {
  const std::lock_guard guard(mutex_);
  Load();
  const auto is_same = [&attempt](const Entry& entry) { return IsSame(entry, attempt); };
  if (std::erase_if(entries_, is_same) != 0) Store();
}

bool PinMemory::IsEmpty() {
  const std::lock_guard guard(mutex_);
  Load();
  return entries_.empty();
}

bool PinMemory::IsSame(const Entry& entry, const PinAttempt& attempt) {
  const PinAttempt& known = entry.attempt;
  const bool by_number = !known.sim.empty() && !attempt.sim.empty();
  if (by_number ? known.sim != attempt.sim : known.device != attempt.device) return false;
  if (!known.pin.empty()) return known.pin == attempt.pin;
  return Crypt(attempt.pin, entry.digest) == entry.digest;
}

void PinMemory::Load() {
  if (loaded_ || file_.empty()) return;
  loaded_ = true;
  std::error_code none;
  if (!std::filesystem::exists(file_, none) && !none) return;
  std::ifstream in(file_);
  if (!in) Report(std::generic_category().message(errno));
  for (std::string line; entries_.size() < kMost && std::getline(in, line);) {
    Entry entry{};
    std::string end;
    std::istringstream words(line.substr(0, kMaxLine));
    words >> end >> entry.attempt.sim >> entry.digest;
    std::getline(words >> std::ws, entry.attempt.device);
    if (!words || entry.digest.front() != '$') continue;  // a comment, or damaged
    // An unknown word is taken for the worse one.
    const bool unknown = end == Name(PinEnd::kUnknown);
    entry.end = unknown ? PinEnd::kUnknown : PinEnd::kRefused;
    if (entry.attempt.sim == kNoSim) entry.attempt.sim.clear();
    entries_.push_back(std::move(entry));
  }
}

void PinMemory::Store() {
  if (file_.empty()) return;
  std::string content = kHead;
  for (const Entry& entry : entries_) {
    if (entry.digest.empty()) continue;
    const PinAttempt& attempt = entry.attempt;
    content +=
        fmt::format("{} {} {} {}\n", Name(entry.end), attempt.sim.empty() ? kNoSim : attempt.sim,
                    entry.digest, attempt.device);
  }
  try {
    WriteStateFile(file_, content);
  } catch (const std::filesystem::filesystem_error& error) {
    Report(error.code().message());
  }
}

void PinMemory::Report(const std::string& what) {
  if (std::exchange(reported_, true)) return;
  spdlog::warn(
      "{}: {}; the PINs that the SIM card refused are remembered only until the program ends",
      file_.string(), what);
}

}  // namespace corvane
