// SPDX-License-Identifier: MIT
// The power fails at any moment: what was reported to be on the disk is there afterwards, and every
// batch is whole, whatever became of the writes that had not been synchronised.
#include <gmock/gmock.h>

#include <filesystem>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "libs/messages/store_opening.h"
#include "tests/libs/messages/batches.h"
#include "tests/libs/messages/store_tools.h"
#include "tests/support/shim_vfs.h"

namespace messages {
namespace {

namespace fs = std::filesystem;
using test_support::DiskCall;
using test_support::ShimVfs;

constexpr std::size_t kSector = 512;

/// One step of what happened: a call, and how many batches had been reported by then.
struct Step {
  DiskCall call;
  int reported = 0;
};

/// The content of one file, and what has not been synchronised yet.
class SimulatedFile {
 public:
  SimulatedFile() = default;
  explicit SimulatedFile(std::string content) : durable_(content), current_(std::move(content)) {}

  void Apply(const DiskCall& call) {
    if (call.kind == DiskCall::Kind::kSync) {
      durable_ = current_;
      unsynchronised_.clear();
    } else {
      ApplyTo(current_, call);
      unsynchronised_.push_back(call);
    }
  }
  [[nodiscard]] const std::string& current() const { return current_; }
  [[nodiscard]] const std::string& durable() const { return durable_; }
  /// Some sectors of some of the unsynchronised writes have reached the disk.
  [[nodiscard]] std::string Torn(std::mt19937& random) const {
    std::string content = durable_;
    for (const DiskCall& call : unsynchronised_) {
      if (call.kind == DiskCall::Kind::kTruncate) {
        if (random() % 2 == 0) ApplyTo(content, call);
        continue;
      }
      for (std::size_t at = 0; at < call.octets.size(); at += kSector) {
        if (random() % 2 == 0) continue;
        DiskCall sector = call;
        sector.at += static_cast<std::int64_t>(at);
        sector.octets = call.octets.substr(at, kSector);
        ApplyTo(content, sector);
      }
    }
    return content;
  }

 private:
  static void ApplyTo(std::string& content, const DiskCall& call) {
    const auto at = static_cast<std::size_t>(call.at);
    if (call.kind == DiskCall::Kind::kTruncate) {
      content.resize(at);
    } else {
      if (content.size() < at + call.octets.size()) content.resize(at + call.octets.size());
      content.replace(at, call.octets.size(), call.octets);
    }
  }

  std::string durable_;
  std::string current_;
  std::vector<DiskCall> unsynchronised_;
};

using Disk = std::map<std::string, SimulatedFile>;

/// What a program does with its disk: `batches` batches, each reported, and an orderly end.
class Recording {
 public:
  explicit Recording(int batches) {
    StoreOptions options = Quick();
    options.vfs = vfs_.name();
    Store store(folder_.path(), "sms", options);
    WriteMessages(store, {});
    for (const char* const name : {"messages.db", "messages.db-wal"}) {
      first_[name] = SimulatedFile(FileContent(folder_.path() / name));
    }
    {
      const std::scoped_lock lock(mutex_);
      steps_.clear();
    }
    Batches writer(store);
    for (int i = 0; i < batches; ++i) {
      writer.WriteNext();
      EXPECT_TRUE(store.Flush(test_support::kPatience));
      const std::scoped_lock lock(mutex_);
      reported_ = writer.number();
    }
  }
  [[nodiscard]] const Disk& first() const { return first_; }
  [[nodiscard]] const std::vector<Step>& steps() const { return steps_; }

 private:
  int Note(const DiskCall& call) {
    const std::scoped_lock lock(mutex_);
    steps_.push_back({call, reported_});
    return SQLITE_OK;
  }

  test_support::TemporaryFolder folder_;
  std::mutex mutex_;
  int reported_ = 0;
  std::vector<Step> steps_;
  Disk first_;
  ShimVfs vfs_{[this](const DiskCall& call) { return Note(call); }};
};

void Apply(Disk& disk, const DiskCall& call) {
  const std::string name = fs::path(call.path).filename();
  if (call.kind == DiskCall::Kind::kDelete) {
    disk.erase(name);
  } else {
    disk[name].Apply(call);
  }
}

/// What a store finds after the power has come back; -1: half a batch.
int BatchAfter(const std::map<std::string, std::string>& files) {
  const test_support::TemporaryFolder folder;
  for (const auto& [name, content] : files) SetFileContent(folder.path() / name, content);
  const OpenedStore opened = OpenStore(folder.path() / "messages.db", "", TimeNow(), "");
  EXPECT_THAT(opened.notices, testing::IsEmpty());
  return WholeBatch(opened.file->Load(TimeNow()).waiting);
}

template <class Choose>
std::map<std::string, std::string> Image(const Disk& disk, const Choose& choose) {
  std::map<std::string, std::string> files;
  for (const auto& [name, file] : disk) files[name] = choose(file);
  return files;
}

TEST(StoreAfterAPowerCut, HasAllThatWasReportedAndOnlyWholeBatches) {
  const Recording recording(12);
  ASSERT_GT(recording.steps().size(), 100U);
  Disk disk = recording.first();
  std::mt19937 random(7);  // NOLINT(cert-msc51-cpp): the same each time
  for (std::size_t i = 0; i < recording.steps().size(); ++i) {
    const Step& step = recording.steps()[i];
    Apply(disk, step.call);
    const auto expect_whole = [&](const char* what, const auto& choose) {
      const int batch = BatchAfter(Image(disk, choose));
      EXPECT_GE(batch, step.reported) << what << " at step " << i;
      EXPECT_LE(batch, step.reported + 1) << what << " at step " << i;
    };
    expect_whole("with all writes", [](const SimulatedFile& file) { return file.current(); });
    expect_whole("without unsynchronised writes",
                 [](const SimulatedFile& file) { return file.durable(); });
    expect_whole("with torn writes", [&](const SimulatedFile& file) { return file.Torn(random); });
    if (testing::Test::HasFailure()) return;
  }
}

}  // namespace
}  // namespace messages
