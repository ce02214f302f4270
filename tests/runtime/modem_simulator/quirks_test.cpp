// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/quirks.h"

#include <gtest/gtest.h>

#include <string_view>
#include <utility>

namespace modem_simulator {
namespace {

TEST(Quirks, EachHasTheNameThatUsersWrite) {
  const std::pair<std::string_view, Quirk> names[] = {{"echo-always", Quirk::kEchoAlways},
                                                      {"no-echo", Quirk::kNoEcho},
                                                      {"double-echo", Quirk::kDoubleEcho},
                                                      {"prompt-bare", Quirk::kPromptBare},
                                                      {"prompt-crlf", Quirk::kPromptCrLf},
                                                      {"no-prompt", Quirk::kNoPrompt},
                                                      {"no-blank", Quirk::kNoBlank},
                                                      {"alpha-field", Quirk::kAlphaField},
                                                      {"no-alpha-field", Quirk::kNoAlphaField},
                                                      {"newest-first", Quirk::kNewestFirst},
                                                      {"index-from-zero", Quirk::kIndexFromZero},
                                                      {"delete-empty-ok", Quirk::kDeleteEmptyOk},
                                                      {"filled-pdu", Quirk::kFilledPdu},
                                                      {"ok-on-failure", Quirk::kOkOnFailure},
                                                      {"wide-reference", Quirk::kWideReference},
                                                      {"deaf-while-busy", Quirk::kDeafWhileBusy}};
  EXPECT_EQ(QuirkTable().size(), std::size(names));
  for (const auto& [name, quirk] : names) EXPECT_EQ(FindQuirk(name), quirk) << name;
  for (const std::string_view name : {"", "no-ech", "no-echoo", "No-Echo"}) {
    EXPECT_EQ(FindQuirk(name), std::nullopt) << name;
  }
}

TEST(Quirks, AModemHasThoseThatItWasGiven) {
  Quirks quirks;
  for (const QuirkRow& row : QuirkTable()) {
    EXPECT_FALSE(quirks.Has(row.quirk)) << row.name;
    quirks.Add(row.quirk);
    EXPECT_TRUE(quirks.Has(row.quirk)) << row.name;
  }
}

}  // namespace
}  // namespace modem_simulator
