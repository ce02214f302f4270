// SPDX-License-Identifier: MIT
#include "block/declaration.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr FBMetaEntry kTable[] = {{"Port", "DINT"},      {"Send", "BOOL"},  {"Receiver", "STRING"},
                                  {"Message", "STRING"}, {"Error", "DINT"}, {"State", "DINT"},
                                  {nullptr, nullptr}};
constexpr FBMetaEntry kEmpty[] = {{nullptr, nullptr}};

TEST(Declaration, DeclaresTheNamesOfItsRowsAndNoOthers) {
  EXPECT_TRUE(Declares(kTable, "Port"));
  EXPECT_TRUE(Declares(kTable, "State"));
  EXPECT_FALSE(Declares(kTable, "port"));
  EXPECT_FALSE(Declares(kTable, "Por"));
  EXPECT_FALSE(Declares(kTable, ""));
  EXPECT_FALSE(Declares(kEmpty, "Port"));
}

TEST(Declaration, TheNearestNameIsTheOneThatWasMeant) {
  const std::pair<const char*, const char*> rows[] = {
      {"Reciever", "Receiver"}, {"receiver", "Receiver"}, {"Recever", "Receiver"},
      {"Massage", "Message"},   {"message", "Message"},   {"Messages", "Message"},
      {"port", "Port"},         {"Prot", "Port"},         {"SEND", "Send"},
      {"Sent", "Send"},         {"Err", "Error"},         {"state", "State"}};
  for (const auto& [given, meant] : rows) EXPECT_STREQ(NearestName(kTable, given), meant) << given;
}

TEST(Declaration, EveryNameHasANearestOneExceptInAnEmptyTable) {
  EXPECT_STREQ(NearestName(kTable, ""), "Port");
  EXPECT_NE(NearestName(kTable, std::string(100000, 'x')), nullptr);
  EXPECT_EQ(NearestName(kEmpty, "Port"), nullptr);
}

TEST(Declaration, DistanceCountsLettersTwiceAndTheirCaseOnce) {
  EXPECT_EQ(NameDistance("Port", "Port"), 0U);
  EXPECT_EQ(NameDistance("port", "Port"), 1U);
  EXPECT_EQ(NameDistance("Pord", "Port"), 2U);
  EXPECT_EQ(NameDistance("Ports", "Port"), 2U);
  EXPECT_EQ(NameDistance("ort", "Port"), 2U);
  EXPECT_EQ(NameDistance("", "Port"), 8U);
  EXPECT_EQ(NameDistance("Port", ""), 8U);
}

}  // namespace
