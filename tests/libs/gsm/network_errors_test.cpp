// SPDX-License-Identifier: MIT
#include "libs/gsm/network_errors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>

namespace {

using gsm::ClassOfCmeError;
using gsm::ClassOfCmsError;
using gsm::CmeErrors;
using gsm::CmsErrors;
using gsm::ErrorClass;
using gsm::NetworkError;

TEST(NetworkErrors, AreSortedAndEachHasAMeaning) {
  for (const auto& table : {CmsErrors(), CmeErrors()}) {
    EXPECT_TRUE(std::is_sorted(
        table.begin(), table.end(),
        [](const NetworkError& a, const NetworkError& b) { return a.number <= b.number; }))
        << "a search needs the order, and no number twice";
    for (const NetworkError& error : table) EXPECT_FALSE(error.meaning.empty()) << error.number;
  }
}

TEST(NetworkErrors, AreFoundByNumber) {
  for (const NetworkError& error : CmsErrors()) {
    EXPECT_EQ(gsm::FindCmsError(error.number), &error);
  }
  for (const NetworkError& error : CmeErrors()) {
    EXPECT_EQ(gsm::FindCmeError(error.number), &error);
  }
  EXPECT_EQ(gsm::FindCmsError(331)->meaning, "no network service");
  EXPECT_EQ(gsm::FindCmeError(10)->meaning, "SIM not inserted");
  for (const int number : {-1, 0, 2, 512, std::numeric_limits<int>::max()}) {
    EXPECT_EQ(gsm::FindCmsError(number), nullptr) << number;
  }
}

TEST(NetworkErrors, ARefusalOfReceiverSubscriptionOrMessageIsForGood) {
  for (const int number : {1, 8, 10, 28, 29, 30, 50, 69, 95, 96, 97, 99, 144, 195, 196, 304, 305}) {
    EXPECT_EQ(ClassOfCmsError(number), ErrorClass::kForGood) << number;
  }
}

TEST(NetworkErrors, WhatPassesIsForNow) {
  for (const int number : {21, 27, 38, 41, 42, 47, 98, 111, 127, 192, 314, 331, 332, 500}) {
    EXPECT_EQ(ClassOfCmsError(number), ErrorClass::kForNow) << number;
  }
}

TEST(NetworkErrors, UnknownNumbersAreForNow) {
  for (const int number : {-1, 0, 224, 254, 512, 515, 65'535}) {
    EXPECT_EQ(ClassOfCmsError(number), ErrorClass::kForNow) << number;
    EXPECT_EQ(ClassOfCmeError(number), number == 0 ? ErrorClass::kPort : ErrorClass::kForNow);
  }
}

TEST(NetworkErrors, SimAndModemAreToldApart) {
  for (const int number : {310, 311, 312, 313, 315, 316, 317, 318}) {
    EXPECT_EQ(ClassOfCmsError(number), ErrorClass::kSim) << number;
  }
  for (const int number : {300, 302, 303, 320, 322, 330}) {
    EXPECT_EQ(ClassOfCmsError(number), ErrorClass::kPort) << number;
  }
  for (const int number : {10, 11, 12, 13, 15, 16}) {
    EXPECT_EQ(ClassOfCmeError(number), ErrorClass::kSim) << number;
  }
  EXPECT_EQ(ClassOfCmeError(14), ErrorClass::kForNow) << "busy: not yet";
  EXPECT_EQ(ClassOfCmeError(30), ErrorClass::kForNow);
}

TEST(NetworkErrors, NoRefusalOfTheModemItselfIsForGood) {
  for (const NetworkError& error : CmeErrors()) {
    EXPECT_NE(error.error_class, ErrorClass::kForGood) << error.number;
  }
}

}  // namespace
