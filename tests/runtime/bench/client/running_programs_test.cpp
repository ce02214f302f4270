// SPDX-License-Identifier: MIT
#include "runtime/bench/client/running_programs.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "libs/base/descriptor.h"
#include "tests/support/temporary_folder.h"

namespace corvane::bench {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

class RunningProgramsTest : public testing::Test {
 protected:
  RunningProgramsTest() {
    places_.folders = {folder_ / "own"};
    places_.services = folder_ / "services";
    places_.users = folder_ / "users";
  }

  /// Nobody listens any more when the result is destroyed, but the socket stays.
  Descriptor Listen(const fs::path& path, int backlog = 64) const {
    const fs::path file = folder_ / path;
    fs::create_directories(file.parent_path());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, file.c_str(), file.native().size());
    Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(listener.get(), backlog), 0);
    return listener;
  }
  [[nodiscard]] std::vector<std::string> Names() const {
    const FoundPrograms found = FindPrograms(places_);
    EXPECT_THAT(found.problems, IsEmpty());
    std::vector<std::string> names;
    for (const auto& program : found.programs) names.push_back(program.name);
    return names;
  }

  const test_support::TemporaryFolder temporary_;
  const fs::path folder_ = temporary_.path();
  SocketPlaces places_;
};

TEST_F(RunningProgramsTest, ServicesAndTheProgramsOfUsersAreFound) {
  const Descriptor own = Listen("own/c.sock");
  const Descriptor service = Listen("services/b/b.sock");
  const Descriptor other = Listen("users/1000/corvane/a.sock");
  EXPECT_THAT(Names(), ElementsAre("a", "b", "c"));
  places_.users.clear();
  EXPECT_THAT(Names(), ElementsAre("b", "c"));
}

TEST_F(RunningProgramsTest, MissingFoldersAreNotAProblem) {
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(RunningProgramsTest, WhatIsNotAListeningSocketIsLeftOut) {
  const Descriptor own = Listen("own/runs.sock");
  (void)Listen("own/killed.sock");
  std::ofstream(folder_ / "own/file.sock") << "x";
  fs::create_symlink(folder_ / "own/runs.sock", folder_ / "own/link.sock");
  fs::create_directory_symlink(folder_ / "own", folder_ / "link");
  places_.folders.push_back(folder_ / "link");
  places_.folders.push_back(folder_ / "own");
  EXPECT_THAT(Names(), ElementsAre("runs"));
}

TEST_F(RunningProgramsTest, TheNumberOfTheProcessIsNotPartOfTheName) {
  const Descriptor second = Listen(fmt::format("own/pump-{}.sock", getpid()));
  const Descriptor other = Listen("own/valve-2.sock");
  EXPECT_THAT(Names(), ElementsAre("pump", "valve-2"));
  const FoundPrograms found = FindPrograms(places_);
  EXPECT_EQ(found.programs.front().pid, getpid());
  EXPECT_EQ(found.programs.front().user, geteuid());
}

TEST_F(RunningProgramsTest, AProgramThatTakesNoConnectionsIsFoundWithoutWaiting) {
  const Descriptor stopped = Listen("own/stopped.sock", 0);
  std::vector<Descriptor> waiting;
  for (int i = 0; i < 4; ++i) {
    waiting.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = folder_ / "own/stopped.sock";
    std::memcpy(address.sun_path, path.c_str(), path.size());
    (void)connect(waiting.back().get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
  }
  const FoundPrograms found = FindPrograms(places_);
  ASSERT_EQ(found.programs.size(), 1u);
  EXPECT_EQ(found.programs.front().name, "stopped");
  EXPECT_EQ(found.programs.front().pid, 0);
}

}  // namespace
}  // namespace corvane::bench
