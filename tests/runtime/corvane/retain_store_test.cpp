// SPDX-License-Identifier: MIT
// The file: when it is written, and what becomes of it on a bad day.
#include "runtime/corvane/retain_store.h"

#include <sys/stat.h>

#include "runtime/corvane/retain_json.h"
#include "tests/runtime/corvane/retain_program.h"
#include "tests/support/wait_for.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using test_support::WaitFor;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kCount = "local t = plc.retain('t', {n = 0}) t.n = t.n + 1 result = t.n";

class RetainStoreTest : public RetainTest {
 protected:
  /// Files beside retain.json.
  std::vector<std::string> Others() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(state())) {
      if (entry.path() != file()) names.push_back(entry.path().filename());
    }
    return names;
  }
};

/// A program of 1 ms cycles that changes its value in each of them.
constexpr const char* kChanging =
    "t = plc.retain('t', {n = 0}) result = 0 function cycle() t.n = t.n + 1 end";

class Changing {
 public:
  Changing(const fs::path& file, RetainStore& store) : program_(file, {}, &store) {
    program_.Load();
  }
  void Cycle() { program_.Cycle(++number_); }

 private:
  ControlProgram program_;
  std::uint64_t number_ = 0;
};

TEST_F(RetainStoreTest, WritesAtMostOnceASecondAndAtTheEnd) {
  std::ofstream(program_) << kChanging;
  std::vector<std::string> contents;  // each one that was seen
  const auto begin = std::chrono::steady_clock::now();
  {
    RetainStore store(state());
    Changing program(program_, store);
    const auto look = [&] {
      program.Cycle();
      std::string now = Content();
      if (contents.empty() || contents.back() != now) contents.push_back(std::move(now));
      return contents.size() >= 4;  // one is that there is no file
    };
    EXPECT_TRUE(WaitFor(look));
  }
  const auto lasted = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(lasted, milliseconds(1900)) << "three writes need two pauses";
  EXPECT_NE(Content(), contents.back()) << "the end wrote what had changed since";
}

TEST_F(RetainStoreTest, WritesNothingWhileNothingChanges) {
  std::ofstream(program_) << "plc.retain('t', {n = 0}) function cycle() end";
  RetainStore store(state());
  {
    Changing program(program_, store);
    ASSERT_TRUE(WaitFor([&] {
      program.Cycle();
      return fs::exists(file());
    }));
    fs::remove(file());
    const auto end = std::chrono::steady_clock::now() + milliseconds(2500);
    ASSERT_TRUE(WaitFor([&] {
      program.Cycle();
      return std::chrono::steady_clock::now() > end;
    }));
  }
  EXPECT_FALSE(fs::exists(file()));
}

TEST_F(RetainStoreTest, IsForItsOwnerAlone) {
  const auto before = umask(0);
  Run(kCount);
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  EXPECT_THAT(Others(), IsEmpty());
}

TEST_F(RetainStoreTest, EveryDamageIsFoundAndPutAside) {
  ASSERT_EQ(Run(kCount), "1");
  const std::string good = Content();
  test_support::TakeLog();
  std::vector<std::string> damaged{
      "", "x", "{}", good + "\n", good + good, "\n" + good, std::string(good.size(), '\0')};
  for (std::size_t size = 0; size < good.size(); ++size) damaged.push_back(good.substr(0, size));
  for (std::size_t at = 0; at < good.size(); ++at) {
    std::string other = good;
    other[at] = static_cast<char>(other[at] ^ 1);
    damaged.push_back(other);
  }
  for (const std::string& content : damaged) {
    std::ofstream(file(), std::ios::binary) << content;
    ASSERT_EQ(Run(kCount), "1") << content;
    const auto others = Others();
    ASSERT_EQ(others.size(), 1u);
    EXPECT_THAT(others[0], testing::StartsWith("retain.json.damaged-2"));
    EXPECT_EQ(fs::file_size(state() / others[0]), content.size());
    fs::remove(state() / others[0]);
    const auto log = test_support::TakeLog();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_THAT(log[0],
                HasSubstr("error the retained values in " + file().string() + " cannot be used"));
    EXPECT_THAT(log[0], HasSubstr(others[0]));
  }
  EXPECT_EQ(Run(kCount), "2") << "and the new file is good";
}

TEST_F(RetainStoreTest, AFileThatIsNoneIsPutAsideToo) {
  for (const char* kind : {"folder", "fifo", "link"}) {
    fs::create_directories(state());
    if (kind == std::string("folder")) fs::create_directory(file());
    if (kind == std::string("fifo")) mkfifo(file().c_str(), 0600);
    if (kind == std::string("link")) fs::create_symlink("/dev/zero", file());
    EXPECT_EQ(Run(kCount), "1") << kind;
    EXPECT_EQ(Run(kCount), "2") << kind;
    EXPECT_EQ(Others().size(), 1u) << kind;
    fs::remove_all(state());
  }
}

TEST_F(RetainStoreTest, TwoProgramsInOneFolderDoNotDisturbEachOther) {
  RetainStore first(state());
  std::ofstream(program_) << kChanging;
  {
    Changing program(program_, first);
    program.Cycle();
    test_support::TakeLog();
    EXPECT_EQ(Run(kCount), "1") << "with its own values";
    EXPECT_EQ(Run("result = plc.retain('t', {n = 7}).n plc.retain('u', {})"), "7");
  }
  const auto log = test_support::TakeLog();
  ASSERT_EQ(log.size(), 2u) << "once each";
  EXPECT_THAT(log[0], HasSubstr("error retained values are not kept: another program keeps its "
                                "values in " +
                                state().string()));
}

TEST_F(RetainStoreTest, TheFolderIsFreeAgainAfterTheEnd) {
  EXPECT_EQ(Run(kCount), "1");
  EXPECT_EQ(Run(kCount), "2");
}

TEST_F(RetainStoreTest, WithoutAFolderTheProgramRunsAndThisIsReportedOnce) {
  RetainStore store{fs::path()};
  EXPECT_EQ(RunWith(&store, "plc.retain('a', {}) plc.retain('b', {}) result = 1", 3), "1");
  EXPECT_THAT(test_support::TakeLog(),
              ElementsAre(HasSubstr("error retained values are not kept")));
}

TEST_F(RetainStoreTest, AFolderThatCannotBeMadeIsReportedOnceAndTriedAgain) {
  std::ofstream(state()) << "in the way";
  RetainStore::Options options;
  options.interval = options.retry = milliseconds(1);
  std::ofstream(program_) << kChanging;
  RetainStore store(state(), options);
  Changing program(program_, store);
  program.Cycle();
  EXPECT_THAT(test_support::TakeLog(),
              ElementsAre(testing::AllOf(
                  HasSubstr("error retained values cannot be kept: " + state().string() + ": "),
                  HasSubstr("the program runs on"))));
  fs::remove(state());
  EXPECT_TRUE(WaitFor([&] { return fs::exists(file()); }));
  EXPECT_TRUE(WaitFor([] {
    const auto log = test_support::TakeLog();
    return log == std::vector<std::string>{"info retained values are written again"};
  }));
}

TEST_F(RetainStoreTest, ValuesThatAppearAfterTheStartAreNotOverwritten) {
  // As when the disk with the folder is mounted late.
  EXPECT_EQ(Run(kCount), "1");
  const std::string good = Content();
  const fs::path elsewhere = folder_.path() / "elsewhere";
  const fs::path link = folder_.path() / "link";
  fs::rename(state(), elsewhere);
  fs::create_symlink(program_, state());  // not a folder
  RetainStore::Options options;
  options.interval = options.retry = milliseconds(1);
  RetainStore store(state(), options);
  std::ofstream(program_) << kChanging;
  Changing program(program_, store);
  for (int i = 0; i < 5; ++i) program.Cycle();
  fs::create_symlink(elsewhere, link);
  fs::rename(link, state());
  ASSERT_TRUE(WaitFor([this] { return !Others().empty() && fs::exists(file()); }));
  const auto others = Others();
  ASSERT_FALSE(others.empty());
  std::ostringstream text;
  text << std::ifstream(state() / others[0]).rdbuf();
  EXPECT_EQ(text.str(), good);
}

TEST_F(RetainStoreTest, AWriteThatFailsLeavesTheOldFileAndNothingElse) {
  EXPECT_EQ(Run(kCount), "1");
  const std::string good = Content();
  fs::create_directory(state() / "retain.json.new");
  test_support::TakeLog();
  EXPECT_EQ(Run(kCount), "2");
  EXPECT_EQ(Content(), good);
  EXPECT_THAT(test_support::TakeLog(), ElementsAre(HasSubstr("cannot be kept")));
}

}  // namespace
}  // namespace corvane
