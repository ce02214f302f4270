// SPDX-License-Identifier: MIT
#include "libs/mail/mail_domain.h"

#include <gtest/gtest.h>

namespace mail {
namespace {

std::string Label(std::size_t size) {
  return std::string(size, 'a');
}

TEST(ReadDomain, TakesNamesOfHosts) {
  for (const std::string& name :
       {std::string("plant.example"), std::string("localhost"), std::string("a-b.C3"),
        std::string("1.2.3.4.5"), std::string("xn--bcher-kva.example"), Label(63) + ".de"}) {
    EXPECT_EQ(ReadDomain(name).ascii, name);
    EXPECT_EQ(ReadDomain(name).problem, "") << name;
  }
}

TEST(ReadDomain, WritesOtherScriptsInAscii) {
  EXPECT_EQ(ReadDomain("b\xC3\xBC"
                       "cher.example")
                .ascii,
            "xn--bcher-kva.example");
  EXPECT_EQ(ReadDomain("B\xC3\x9C"
                       "CHER.example")
                .ascii,
            "xn--bcher-kva.example");
  EXPECT_EQ(ReadDomain("stra\xC3\x9F"
                       "e.example")
                .ascii,
            "xn--strae-oqa.example");
  EXPECT_EQ(ReadDomain("\xE4\xBE\x8B\xE5\xAD\x90.\xE6\xB5\x8B\xE8\xAF\x95").ascii,
            "xn--fsqu00a.xn--0zwm56d");
}

TEST(ReadDomain, RefusesWhatIsNoName) {
  for (const std::string& name :
       {std::string("a..b"), std::string(".a"), std::string("a."), std::string("-a.b"),
        std::string("a-.b"), std::string("a_b.c"), std::string("a/b"), std::string("192.0.2.1"),
        Label(64) + ".de", std::string("\xF0\x9F\x94\xA5\xC2\xA0.de")}) {
    EXPECT_NE(ReadDomain(name).problem, "") << name;
    EXPECT_EQ(ReadDomain(name).ascii, "") << name;
  }
}

TEST(ReadDomain, LimitsTheLength) {
  const std::string labels = Label(63) + "." + Label(63) + "." + Label(63) + "." + Label(63);
  EXPECT_EQ(ReadDomain(labels).problem, "");
  EXPECT_EQ(ReadDomain(labels + "a").problem,
            "the domain has more than 255 characters; correct what follows the @");
  EXPECT_NE(ReadDomain(std::string(1 << 20, 'a')).problem, "");
}

TEST(ReadAddressLiteral, TakesBothVersions) {
  for (const char* literal : {"[192.0.2.1]", "[IPv6:2001:db8::1]", "[ipv6:::1]"}) {
    EXPECT_EQ(ReadAddressLiteral(literal).ascii, literal);
    EXPECT_EQ(ReadAddressLiteral(literal).problem, "");
  }
  EXPECT_NE(ReadAddressLiteral(std::string_view("[192.0.2.1\0]", 12)).problem, "");
  EXPECT_EQ(ReadAddressLiteral("[::1]").problem,
            "an IPv6 address must be marked; write @[IPv6:::1]");
  for (const char* literal :
       {"[]", "[plant.example]", "[192.0.2]", "[IPv6:]", "[IPv6:192.0.2.1]", "[x:1]"}) {
    EXPECT_NE(ReadAddressLiteral(literal).problem, "") << literal;
  }
}

}  // namespace
}  // namespace mail
