// SPDX-License-Identifier: MIT
#include "runtime/bench/client/program_choice.h"

#include <gtest/gtest.h>

namespace corvane::bench {
namespace {

/// Why nothing was chosen.
std::string Refusal(const FoundPrograms& found, const std::string& name) {
  try {
    return "chosen: " + ChooseProgram(found, name).socket.string();
  } catch (const ChoiceError& error) {
    return error.what();
  }
}

const FoundPrograms kNone;
const FoundPrograms kOne{{{"pump", "/a/pump.sock", 12, 0}}, {}};
const FoundPrograms kMany{{{"press", "/a/press.sock", 11, 0},
                           {"pump", "/a/pump.sock", 12, 0},
                           {"pump", "/b/pump.sock", 13, 7}},
                          {"/c: Permission denied"}};

TEST(ProgramChoiceTest, TheOnlyProgramNeedsNoName) {
  EXPECT_EQ(ChooseProgram(kOne, "").pid, 12);
  EXPECT_EQ(Refusal(kNone, ""), "no program runs");
  EXPECT_EQ(Refusal(kMany, ""),
            "several programs run, so name one; these run: press, pump-12, pump-13 (/c: Permission "
            "denied)");
}

TEST(ProgramChoiceTest, AWrongNameIsAnsweredWithWhatRuns) {
  EXPECT_EQ(Refusal(kOne, "pmup"), "no program 'pmup' runs; these run: pump");
  EXPECT_EQ(Refusal(kNone, "pump"), "no program 'pump' runs; no program runs");
  EXPECT_EQ(Refusal(kOne, "/no/such.sock"),
            "/no/such.sock is not the socket of a program; these run: pump");
}

TEST(ProgramChoiceTest, ProgramsOfOneNameAreToldApartByTheirProcess) {
  EXPECT_EQ(ChooseProgram(kMany, "press").pid, 11);
  EXPECT_EQ(Refusal(kMany, "pump").substr(0, 23), "2 programs 'pump' run; ");
  EXPECT_EQ(ChooseProgram(kMany, "pump-13").socket, "/b/pump.sock");
  EXPECT_EQ(AddressOf(kOne.programs.front(), kOne), "pump");
}

TEST(ProgramChoiceTest, WithoutAProcessNumberTheSocketIsTheAddress) {
  const FoundPrograms found{{{"pump", "/a/pump.sock", 0, 0}, {"pump", "/b/pump.sock", 13, 0}}, {}};
  EXPECT_EQ(AddressOf(found.programs.front(), found), "/a/pump.sock");
}

}  // namespace
}  // namespace corvane::bench
