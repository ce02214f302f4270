// SPDX-License-Identifier: MIT
#include "libs/messages/store_registry.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace messages {
namespace CORVANE_STORE_REGISTRY_VERSION {

/// A list by hand, so that it needs neither a constructor nor a destructor at run time.
struct __attribute__((visibility("default"))) StoreRegistry {
  std::mutex mutex;
  StoreShared* first = nullptr;  // linked by next_open; each one lives as long as its handles
};

/// GCC emits an inline variable of default visibility as STB_GNU_UNIQUE: the dynamic linker keeps
/// one of this name in the whole process, even among libraries that are loaded with RTLD_LOCAL. The
/// name carries the version, since add-ins of different versions may differ in what StoreShared is.
__attribute__((visibility("default"))) constinit inline StoreRegistry store_registry;

}  // namespace CORVANE_STORE_REGISTRY_VERSION
namespace {

using CORVANE_STORE_REGISTRY_VERSION::store_registry;

}  // namespace

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
