// SPDX-License-Identifier: MIT
#include "libs/mail/address.h"

#include <gmock/gmock.h>

#include <chrono>
#include <ctime>

namespace mail {
namespace {

using namespace std::string_view_literals;
using testing::ElementsAre;
using testing::IsEmpty;

struct Good {
  std::string text;
  std::string name;
  std::string mailbox;
};

const std::string kLocal64(64, 'l');
const std::string kLabel63(63, 'd');

const Good kGood[] = {
    {"pump3@plant.example", "", "pump3@plant.example"},
    {"Pump station 3 <pump3@plant.example>", "Pump station 3", "pump3@plant.example"},
    {"<pump3@plant.example>", "", "pump3@plant.example"},
    {" \t pump3@plant.example \r", "", "pump3@plant.example"},
    {"Pump3<pump3@plant.example>", "Pump3", "pump3@plant.example"},
    {"\"Doe, John\" <john@plant.example>", "Doe, John", "john@plant.example"},
    {R"("John \"the pump\" Doe; \\" <john@plant.example>)", "John \"the pump\" Doe; \\",
     "john@plant.example"},
    {"\"a@b\" <john@plant.example>", "a@b", "john@plant.example"},
    {"J. R. Doe <john@plant.example>", "J. R. Doe", "john@plant.example"},
    {"\"John\"  \"Doe\" x <john@plant.example>", "John Doe x", "john@plant.example"},
    {"\"two\r\nlines\" <a@plant.example>", "two lines", "a@plant.example"},
    {"J\xC3\xBCrgen M\xC3\xBCller <jm@plant.example>", "J\xC3\xBCrgen M\xC3\xBCller",
     "jm@plant.example"},
    {"\"\" <a@plant.example>", "", "a@plant.example"},
    {"a@plant.example (the desk)", "", "a@plant.example"},
    {"(desk) Desk (of (the) \\) plant; x, y) <(here)a@plant.example(there)>", "Desk",
     "a@plant.example"},
    {"a.b+c-d_e@plant.example", "", "a.b+c-d_e@plant.example"},
    {"!#$%&'*/=?^`{|}~@plant.example", "", "!#$%&'*/=?^`{|}~@plant.example"},
    {"\"john doe\"@plant.example", "", "\"john doe\"@plant.example"},
    {R"("a\"b\\c@d"@plant.example)", "", R"("a\"b\\c@d"@plant.example)"},
    {"\"john\"@plant.example", "", "john@plant.example"},
    {"\"\"@plant.example", "", "\"\"@plant.example"},
    {"j\xC3\xB6rg@plant.example", "", "j\xC3\xB6rg@plant.example"},
    {"pump@b\xC3\xBC"
     "cher.example",
     "", "pump@xn--bcher-kva.example"},
    {"Pump <\xE7\x94\xB2@\xE4\xBE\x8B\xE5\xAD\x90.example>", "Pump",
     "\xE7\x94\xB2@xn--fsqu00a.example"},
    {"root@localhost", "", "root@localhost"},
    {"a@[192.0.2.1]", "", "a@[192.0.2.1]"},
    {"Pump <a@[IPv6:2001:db8::1]>", "Pump", "a@[IPv6:2001:db8::1]"},
    {kLocal64 + "@plant.example", "", kLocal64 + "@plant.example"},
    {"a@" + kLabel63 + "." + kLabel63 + ".example", "",
     "a@" + kLabel63 + "." + kLabel63 + ".example"},
    {"a @ plant.example", "", "a@plant.example"},
};

TEST(ReadAddress, TakesWhatTheGrammarAllows) {
  for (const Good& good : kGood) {
    const AddressList list = ReadAddress(good.text);
    EXPECT_EQ(list.problem, "") << good.text;
    EXPECT_THAT(list.addresses, ElementsAre(Address{good.name, good.mailbox})) << good.text;
  }
}

struct Bad {
  std::string text;
  std::string problem;
};

constexpr auto kNoAt =
    ": there is no @; write it as name@domain, and a name with a comma or semicolon in quotation "
    "marks";
constexpr auto kDots =
    ": the part before the @ begins or ends with a dot, or has two in a row; correct it";

const Bad kBad[] = {
    {"", "there is no address; write it as name@domain"},
    {" ;, \r\n", "there is no address; write it as name@domain"},
    {"(desk)", "there is no address; write it as name@domain"},
    {"pump3", std::string("address 1, 'pump3'") + kNoAt},
    {"Doe, John <john@plant.example>", std::string("address 1, 'Doe'") + kNoAt},
    {"Pump <>", std::string("address 1, 'Pump <>'") + kNoAt},
    {"a@b; pump3@", "address 2, 'pump3@': nothing follows the @; write it as name@domain"},
    {"@plant.example",
     "address 1, '@plant.example': nothing is before the @; write it as name@domain"},
    {"a@b@c", "address 1, 'a@b@c': there is more than one @; separate addresses with ; or ,"},
    {"a@b c@d", "address 1, 'a@b c@d': there is more than one @; separate addresses with ; or ,"},
    {"Pump 3 a@b",
     "address 1, 'Pump 3 a@b': there is a blank or more before the @; put the address in angle "
     "brackets, as in Pump 3 <pump3@plant.example>"},
    {"a@b Pump",
     "address 1, 'a@b Pump': more than a domain follows the @; separate addresses with ; or , and "
     "put names before the address, which is then in angle brackets"},
    {".a@b", std::string("address 1, '.a@b'") + kDots},
    {"a.@b", std::string("address 1, 'a.@b'") + kDots},
    {"a..b@c", std::string("address 1, 'a..b@c'") + kDots},
    {"a\\b@c",
     "address 1, 'a\\b@c': '\\' cannot be before the @ without quotation marks; correct it"},
    {"\"a\tb\"@c",
     "address 1, '\"a\\tb\"@c': there is a tab or line break before the @; remove it"},
    {"[a]@b", "address 1, '[a]@b': square brackets cannot be before the @; remove them"},
    {kLocal64 + "l@b", "address 1, '" + kLocal64.substr(0, 60) +
                           "...': the part before the @ has more than 64 octets; correct it"},
    {"a@plant.example.", "address 1, 'a@plant.example.': it ends with a dot; remove that"},
    {"a@.plant.example", "address 1, 'a@.plant.example': a dot follows the @; remove it"},
    {"a@plant..example",
     "address 1, 'a@plant..example': there are two dots in a row after the @; remove one"},
    {"a@pump_3.example",
     "address 1, 'a@pump_3.example': '_' cannot be in a domain; correct what follows the @"},
    {"a@-plant.example",
     "address 1, 'a@-plant.example': a part of the domain begins or ends with a hyphen; correct "
     "what follows the @"},
    {"a@" + kLabel63 + "d.example", "address 1, 'a@" + kLabel63.substr(0, 58) +
                                        "...': a part of the domain has more than 63 characters; "
                                        "correct what follows the @"},
    {kLocal64 + "@" + kLabel63 + "." + kLabel63 + "." + kLabel63,
     "address 1, '" + kLocal64.substr(0, 60) + "...': it has more than 254 octets; correct it"},
    {"a@192.0.2.1",
     "address 1, 'a@192.0.2.1': an IP address must be in square brackets; write @[192.0.2.1]"},
    {"a@[2001:db8::1]",
     "address 1, 'a@[2001:db8::1]': an IPv6 address must be marked; write @[IPv6:2001:db8::1]"},
    {"a@[plant.example]",
     "address 1, 'a@[plant.example]': what is in square brackets is not an IP address; write it as "
     "@[192.0.2.1] or @[IPv6:2001:db8::1]"},
    {"a@[192.0.2.1",
     "address 1, 'a@[192.0.2.1': a [ has no matching ]; add it, or put the name in quotation "
     "marks"},
    {"a@\xE2\x80\xAE.example",
     "address 1, 'a@\xE2\x80\xAE.example': the domain cannot be a name of the Internet (string "
     "contains a disallowed character); correct it"},
    {"Pump <a@b", "address 1, 'Pump <a@b': a < has no matching >; add it"},
    {"a@b>", "address 1, 'a@b>': a > has no matching <; add it"},
    {"> Pump <a@b>", "address 1, '> Pump <a@b>': a > is before the <; correct it"},
    {"Pump <<a@b>>",
     "address 1, 'Pump <<a@b>>': something follows the >; separate addresses with ; or , and put "
     "names before the <"},
    {"Pump <a<b@c>", "address 1, 'Pump <a<b@c>': there is more than one <; remove one"},
    {"<a@b> Pump",
     "address 1, '<a@b> Pump': something follows the >; separate addresses with ; or , and put "
     "names before the <"},
    {"<@relay.example:a@b>",
     "address 1, '<@relay.example:a@b>': it has a route; give the address alone, as name@domain"},
    {"Team: a@b, c@d;",
     "address 1, 'Team: a@b': it is a group, or has a colon; give the addresses themselves"},
    {"undisclosed-recipients:;",
     "address 1, 'undisclosed-recipients:': it is a group, or has a colon; give the addresses "
     "themselves"},
    {"mailto:a@b",
     "address 1, 'mailto:a@b': it is a group, or has a colon; give the addresses themselves"},
    {"x@y <a@b>", "address 1, 'x@y <a@b>': the name contains @; put the name in quotation marks"},
    {"Pump [3] <a@b>",
     "address 1, 'Pump [3] <a@b>': the name contains [3]; put the name in quotation marks"},
    {"Pump\\3 <a@b>",
     "address 1, 'Pump\\3 <a@b>': the name contains a backslash; put the name in quotation marks"},
    {"\"Pump <a@b>\nc@d",
     "address 1, '\"Pump <a@b>\\nc@d': a quotation mark has no second one; add it, or write \\\" "
     "within quotation marks"},
    {"Pump (3 <a@b>", "address 1, 'Pump (3 <a@b>': a ( has no matching ); add it"},
    {"Pump 3) <a@b>",
     "address 1, 'Pump 3) <a@b>': there is a ) without its counterpart; remove it, or put the name "
     "in quotation marks"},
    {std::string("a\0b@c"sv),
     "address 1, 'a\\x00b@c': it contains the control character \\x00; remove it"},
    {std::string("a@[192.0.2.1\0]"sv),
     "address 1, 'a@[192.0.2.1\\x00]': it contains the control character \\x00; remove it"},
    {"\"a\x1B[0m\" <a@b>",
     "address 1, '\"a\\x1B[0m\" <a@b>': it contains the control character \\x1B; remove it"},
    {"a@b\x7F", "address 1, 'a@b\\x7F': it contains the control character \\x7F; remove it"},
    {"J\xFCrgen <a@b>", "the text is not valid UTF-8: octet 2 is wrong; check how it was made"},
    {"a@b, c@d", "'a@b, c@d' is more than one address; give one"},
    {std::string(256, 'n') + " <a@b>",
     "address 1, '" + std::string(60, 'n') + "...': the name has more than 255 octets; shorten it"},
};

TEST(ReadAddress, SaysWhatIsWrongAndWhatToDo) {
  for (const Bad& bad : kBad) {
    const AddressList list = ReadAddress(bad.text);
    EXPECT_EQ(list.problem, bad.problem) << bad.text;
    EXPECT_THAT(list.addresses, IsEmpty()) << bad.text;
  }
}

TEST(ReadAddresses, SeparatesByCommasSemicolonsAndLines) {
  const AddressList list = ReadAddresses("a@b;\"x, y; z\" <c@d>,,e@f (1; 2)\r\n\n; \ng@h\n");
  EXPECT_EQ(list.problem, "");
  EXPECT_THAT(list.addresses, ElementsAre(Address{"", "a@b"}, Address{"x, y; z", "c@d"},
                                          Address{"", "e@f"}, Address{"", "g@h"}));
}

TEST(ReadAddresses, NothingGivesNothing) {
  for (const char* text : {"", ";", " , \r\n;"}) {
    EXPECT_THAT(ReadAddresses(text).addresses, IsEmpty());
    EXPECT_EQ(ReadAddresses(text).problem, "");
  }
}

TEST(ReadAddresses, KeepsEachMailboxOnce) {
  EXPECT_THAT(ReadAddresses("a@b.c, X <a@B.C>, A@b.c").addresses,
              ElementsAre(Address{"", "a@b.c"}, Address{"", "A@b.c"}));
}

TEST(ReadAddresses, OneBadEntrySpoilsTheList) {
  const AddressList list = ReadAddresses("a@b, c@d;\n;e, f@g");
  EXPECT_THAT(list.addresses, IsEmpty());
  EXPECT_EQ(list.problem, std::string("address 3, 'e'") + kNoAt);
}

TEST(ReadAddresses, TakesAHundredAndNotOneMore) {
  std::string text;
  for (int i = 0; i < 100; ++i) text += "a" + std::to_string(i) + "@b\n";
  EXPECT_EQ(ReadAddresses(text).addresses.size(), 100U);
  EXPECT_EQ(ReadAddresses(text + "a7@b").addresses.size(), 100U);
  const AddressList list = ReadAddresses(text + "x@b");
  EXPECT_THAT(list.addresses, IsEmpty());
  EXPECT_EQ(list.problem, "there are more than 100 addresses; use several mails");
}

/// Processor time of this thread, which other programs on the machine hardly change.
std::chrono::nanoseconds ProcessorTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// The fastest of some runs.
std::chrono::nanoseconds TimeFor(std::string_view text) {
  auto fastest = std::chrono::nanoseconds::max();
  for (int run = 0; run < 3; ++run) {
    const auto begin = ProcessorTime();
    (void)ReadAddresses(text);
    fastest = std::min(fastest, ProcessorTime() - begin);
  }
  return fastest;
}

TEST(ReadAddresses, TakesLinearTime) {
  for (const std::string_view unit :
       {"(", "\"", "\\", "<", "@", ".", ";", " ", "a@b;", "a ", "\"\" ", "\xC3\xBC", "a@", ")", "[",
        "()", "(\\", "a.b", "a@b.c,\n"}) {
    std::string small;
    while (small.size() < (1 << 13)) small += unit;
    std::string large;
    for (int i = 0; i < 16; ++i) large += small;
    // 16 times the text takes about 16 times as long; were the time quadratic, 256 times.
    EXPECT_LT(TimeFor(large), 80 * TimeFor(small) + std::chrono::milliseconds(1)) << unit;
  }
}

TEST(NeedsSmtpUtf8, OnlyForTheLocalPart) {
  const auto needs = [](std::string_view text) {
    return NeedsSmtpUtf8(ReadAddress(text).addresses.at(0));
  };
  EXPECT_TRUE(needs("j\xC3\xB6rg@plant.example"));
  EXPECT_FALSE(
      needs("J\xC3\xB6rg <joerg@b\xC3\xBC"
            "cher.example>"));
}

TEST(DomainOf, FollowsTheLastAt) {
  EXPECT_EQ(DomainOf({"", "\"a@b\"@plant.example"}), "plant.example");
  EXPECT_EQ(DomainOf({"", "a@[192.0.2.1]"}), "[192.0.2.1]");
  EXPECT_EQ(DomainOf({"", ""}), "");
}

}  // namespace
}  // namespace mail
