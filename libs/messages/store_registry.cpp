// SPDX-License-Identifier: MIT
#include "libs/messages/store_registry.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace messages {

/// A list by hand, so that it needs neither a constructor nor a destructor at run time.
struct StoreRegistry {
  std::mutex mutex;
  StoreShared* first = nullptr;  // linked by next_open; each one lives as long as its handles
};

/// The dynamic linker keeps one STB_GNU_UNIQUE symbol of a name in the whole process, even among
/// libraries that are loaded with RTLD_LOCAL. No C++ yields one with every compiler: GCC makes
/// inline variables unique, clang does not. The name carries the version, since add-ins of
/// different versions may differ in what StoreShared is.
extern StoreRegistry store_registry __asm__(CORVANE_STORE_REGISTRY)
    __attribute__((visibility("default")));

// All zeros: an unlocked mutex of glibc, and no store. The type makes the symbol unique; without
// .globl before it, the assembler for 64-bit ARM would bind references to this library's own copy.
static_assert(sizeof(StoreRegistry) <= 64 && alignof(StoreRegistry) <= 16);
__asm__(R"(
.pushsection .bss
.balign 16
.globl )" CORVANE_STORE_REGISTRY R"(
.type )" CORVANE_STORE_REGISTRY R"(, %gnu_unique_object
.size )" CORVANE_STORE_REGISTRY R"(, 64
)" CORVANE_STORE_REGISTRY R"(: .zero 64
.popsection
)");

JoinedStore JoinStore(const std::filesystem::path& folder, const std::string& channel,
                      StoreOptions options) {
  const std::filesystem::path file = StoreFileIn(folder);
  const std::scoped_lock lock(store_registry.mutex);
  for (StoreShared* open = store_registry.first; open != nullptr; open = open->next_open) {
    if (open->file == file && open->Join(channel)) return {open->shared_from_this(), false};
  }
  auto shared = std::make_shared<StoreShared>(file, std::move(options));
  static_cast<void>(shared->Join(channel));
  shared->next_open = std::exchange(store_registry.first, shared.get());
  return {std::move(shared), true};
}

bool LeaveStore(StoreShared& shared, const std::string& channel) {
  const std::scoped_lock lock(store_registry.mutex);
  if (!shared.Leave(channel)) return false;
  StoreShared** place = &store_registry.first;
  while (*place != &shared) place = &(*place)->next_open;
  *place = shared.next_open;
  return true;
}

}  // namespace messages
