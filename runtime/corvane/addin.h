// SPDX-License-Identifier: MIT
// A loaded add-in library: its entry points are called here.
#pragma once

#include <filesystem>
#include <stdexcept>

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

/// The add-in of this installation: `corvane_fb_lib.so` in a library folder near the program's.
/// Throws AddinError that names the places searched when it is in none.
[[nodiscard]] std::filesystem::path FindOwnAddin();

}  // namespace corvane
