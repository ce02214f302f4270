// SPDX-License-Identifier: MIT
// The power fails between any two calls that change the disk: the retained values are then those of
// the write before or of this one, never a part, and those of a finished write are there.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <map>
#include <mutex>
#include <random>

#include "runtime/corvane/retain_file.h"
#include "tests/runtime/corvane/retain_program.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

/// A call that changed the disk, or made changes durable.
struct DiskStep {
  enum class Kind { kWrite, kSync, kSyncFolder, kRename } kind;
  std::string path;
  std::string octets;  // of a rename: the new path
};

std::mutex steps_mutex;
std::vector<DiskStep>* steps = nullptr;  // null: nothing is recorded

void Note(DiskStep step) {
  const std::lock_guard guard(steps_mutex);
  if (steps != nullptr) steps->push_back(std::move(step));
}

std::string PathOf(int descriptor) {
  std::array<char, 4096> room{};
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t size = readlink(link.c_str(), room.data(), room.size());
  return size < 0 ? "" : std::string(room.data(), static_cast<std::size_t>(size));
}

template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace
}  // namespace corvane

// These take the place of the C library's for the whole process, the runtime's libraries included.
extern "C" ssize_t write(int descriptor, const void* data, size_t size) {
  static auto* const next = corvane::Next<ssize_t(int, const void*, size_t)>("write");
  const ssize_t written = next(descriptor, data, size);
  const std::string path = corvane::PathOf(descriptor);
  if (written > 0 && path.find("/retain.json") != std::string::npos) {
    corvane::Note({corvane::DiskStep::Kind::kWrite,
                   path,
                   {static_cast<const char*>(data), static_cast<std::size_t>(written)}});
  }
  return written;
}

extern "C" int fsync(int descriptor) {
  static auto* const next = corvane::Next<int(int)>("fsync");
  const std::string path = corvane::PathOf(descriptor);
  const int result = next(descriptor);
  const bool is_folder = std::filesystem::is_directory(path);
  corvane::Note({is_folder ? corvane::DiskStep::Kind::kSyncFolder : corvane::DiskStep::Kind::kSync,
                 path,
                 {}});
  return result;
}

extern "C" int rename(const char* from, const char* to) noexcept {
  static auto* const next = corvane::Next<int(const char*, const char*)>("rename");
  const int result = next(from, to);
  if (result == 0) corvane::Note({corvane::DiskStep::Kind::kRename, from, to});
  return result;
}

namespace corvane {
namespace {

/// A file's octets, and which of them a power cut may take.
struct SimulatedFile {
  std::string octets;
  std::size_t durable = 0;

  [[nodiscard]] std::string Torn(std::mt19937& random) const {
    constexpr std::size_t kSector = 16;
    std::string torn = octets;
    for (std::size_t at = durable; at < torn.size(); at += kSector) {
      if (random() % 2 == 0) continue;
      const std::size_t size = std::min(kSector, torn.size() - at);
      torn.replace(at, size, size, '\0');
    }
    if (random() % 2 == 0) torn.resize(durable + random() % (torn.size() - durable + 1));
    return torn;
  }
};

class RetainPowerCut : public RetainTest {
 protected:
  ~RetainPowerCut() override { steps = nullptr; }
  /// What is kept under "t", as a start after a power cut with this file finds it; -1: a damaged
  /// file.
  int Start(const std::string& content) {
    const test_support::TemporaryFolder folder;
    folder.Write("retain.json", content);
    RetainFile kept(folder.path());
    const auto values = kept.Read();
    return values.contains("t") ? values["t"]["n"].get<int>() : -1;
  }
};

TEST_F(RetainPowerCut, LeavesTheValuesOfOneWriteWhole) {
  constexpr int kWrites = 5;
  std::vector<DiskStep> recorded;
  std::vector<std::size_t> finished;  // steps when each write had ended
  steps = &recorded;
  {
    RetainFile retained(state());
    retained.Lock();
    for (int n = 1; n <= kWrites; ++n) {
      retained.Write({{"t", {{"n", n}, {"text", std::string(500, 'x')}}}});
      finished.push_back(recorded.size());
    }
  }
  steps = nullptr;
  ASSERT_GE(recorded.size(), std::size_t{kWrites} * 4);

  std::mt19937 random(17);  // NOLINT(cert-msc51-cpp): the same cuts in each run
  std::map<std::string, SimulatedFile> disk;
  std::vector<SimulatedFile> names{
      {}};  // what the name may refer to after a cut; the last is newest
  int reported = 0;
  const std::string folder = fs::canonical(state());
  for (std::size_t at = 0; at < recorded.size(); ++at) {
    const DiskStep& step = recorded[at];
    SimulatedFile& written = disk[step.path];
    switch (step.kind) {
      case DiskStep::Kind::kWrite: written.octets += step.octets; break;
      case DiskStep::Kind::kSync: written.durable = written.octets.size(); break;
      case DiskStep::Kind::kRename:
        EXPECT_EQ(step.octets, file().string());
        names.push_back(std::exchange(written, {}));
        break;
      case DiskStep::Kind::kSyncFolder:
        if (step.path == folder) names.erase(names.begin(), names.end() - 1);
        break;
    }
    while (static_cast<std::size_t>(reported) < finished.size() &&
           finished[static_cast<std::size_t>(reported)] <= at + 1) {
      ++reported;
    }
    for (const SimulatedFile& each : names) {
      for (int i = 0; i < 5; ++i) {
        const std::string content = each.Torn(random);
        if (content.empty() && reported == 0) continue;  // there was no file yet
        const int n = Start(content);
        EXPECT_GE(n, std::max(reported, 1)) << "after step " << at << " " << step.path;
        EXPECT_LE(n, reported + 1);
      }
    }
  }
  EXPECT_EQ(reported, kWrites);
}

}  // namespace
}  // namespace corvane
