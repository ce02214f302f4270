// SPDX-License-Identifier: MIT
#include "runtime/corvane/addin.h"

#include <dlfcn.h>

#include <string>
#include <vector>

namespace corvane {
namespace {

/// Looks up an entry point. Throws AddinError when the library has none of that name.
void* EntryPoint(void* library, const char* name, const std::filesystem::path& file) {
  void* address = dlsym(library, name);
  if (address == nullptr) {
    throw AddinError(file.string() + " is a library, but not a Corvane add-in: it has no " + name);
  }
  return address;
}

}  // namespace

Addin::Addin(const std::filesystem::path& file) {
  std::error_code error;
  if (!std::filesystem::exists(file, error)) {
    throw AddinError("add-in " + file.string() + " does not exist; check the path");
  }
  // With a path that has a slash the loader searches nowhere else.
  const std::string path = std::filesystem::absolute(file).string();
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (library == nullptr) {
    throw AddinError("cannot load add-in " + file.string() + ": " + dlerror());
  }
  const auto init = reinterpret_cast<int (*)()>(EntryPoint(library, "InitAddin", file));
  dispose_ = reinterpret_cast<void (*)()>(EntryPoint(library, "DisposeAddin", file));
  const int result = init();
  if (result != 0) {
    throw AddinError("add-in " + file.string() + " failed to start: InitAddin returned " +
                     std::to_string(result));
  }
}

Addin::~Addin() {
  dispose_();
}

std::filesystem::path FindOwnAddin() {
  const char* const kName = "corvane_fb_lib.so";
  const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  const std::vector<std::filesystem::path> places{
      folder.parent_path() / "lib" / kName,                // the build tree
      folder.parent_path() / CORVANE_LIBRARY_DIR / kName,  // installed
  };
  std::string searched;
  for (const auto& place : places) {
    std::error_code error;
    if (std::filesystem::exists(place, error)) return place.lexically_normal();
    searched += (searched.empty() ? "" : ", ") + place.lexically_normal().string();
  }
  throw AddinError(std::string("cannot find ") + kName + " (searched " + searched +
                   "); name it with --addin");
}

}  // namespace corvane
