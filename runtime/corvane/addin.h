// SPDX-License-Identifier: MIT
// A loaded add-in library: its entry points are called here.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <vector>

namespace corvane {

/// An add-in could not be loaded; what() names the file and the reason.
class AddinError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Calls `InitAddin` when it is created and `DisposeAddin` when it is destroyed. The code stays
/// mapped until the process ends, since threads and registered openers of the add-in point into it.
/// It must outlive every Lua state that has opened its types.
class Addin {
 public:
  /// Throws AddinError when the file is missing, is not a library, lacks an entry point or fails in
  /// `InitAddin`.
  explicit Addin(const std::filesystem::path& file);
  Addin(const Addin&) = delete;
  Addin& operator=(const Addin&) = delete;
  ~Addin();

 private:
  void (*dispose_)() = nullptr;
};

/// The add-ins of this installation, which are in a library folder near the program's:
/// `corvane_fb_lib.so` first, then those of the others that are installed.
/// Throws AddinError that names the places searched when the first is in none.
[[nodiscard]] std::vector<std::filesystem::path> FindOwnAddins();

}  // namespace corvane
