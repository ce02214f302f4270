// SPDX-License-Identifier: MIT
#include "libs/mail/composer.h"

#include <gmock/gmock.h>
#include <malloc.h>

#include <algorithm>

namespace mail {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// `size` octets, the same one again and again.
class Repetition : public Octets {
 public:
  Repetition(char octet, std::uint64_t size) : octet_(octet), left_(size) {}
  std::size_t Read(std::span<char> buffer) override {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(left_, buffer.size()));
    std::fill_n(buffer.begin(), count, octet_);
    left_ -= count;
    return count;
  }

 private:
  char octet_;
  std::uint64_t left_;
};

Attachment File(std::string name, std::uint64_t size, std::uint64_t there) {
  return {std::move(name), size, [there] { return std::make_unique<Repetition>('\0', there); }};
}
Attachment File(std::string name, std::uint64_t size) {
  return File(std::move(name), size, size);
}

Message Alarm() {
  Message message;
  message.from = {"Pump station 3", "pump3@plant.example"};
  message.to = {{"", "operator@plant.example"}};
  message.subject = "Level too high";
  message.text = "2.4 m";
  message.message_id = "<0123abcd@plant.example>";
  message.date = std::chrono::sys_days{std::chrono::year{2026} / 2 / 28} + std::chrono::hours(23);
  message.zone_minutes = 60;
  return message;
}

std::string ReadAll(Composer& composer, std::size_t step = 1000) {
  std::string octets;
  std::string buffer(step, '\0');
  while (const std::size_t count = composer.Read(buffer)) octets.append(buffer, 0, count);
  return octets;
}

std::string Composed(const Message& message, bool smtputf8 = false) {
  Composer composer(message, smtputf8);
  std::string octets = ReadAll(composer);
  EXPECT_FALSE(composer.failed());
  EXPECT_EQ(composer.size(), octets.size());
  return octets;
}

TEST(Composer, WritesAPlainAlarm) {
  EXPECT_EQ(Composed(Alarm()),
            "Date: Sun, 1 Mar 2026 00:00:00 +0100\r\n"
            "From: Pump station 3 <pump3@plant.example>\r\n"
            "To: operator@plant.example\r\n"
            "Subject: Level too high\r\n"
            "Message-ID: <0123abcd@plant.example>\r\n"
            "MIME-Version: 1.0\r\n"
            "X-Mailer: Corvane\r\n"
            "Auto-Submitted: auto-generated\r\n"
            "Content-Type: text/plain; charset=us-ascii\r\n"
            "Content-Transfer-Encoding: 7bit\r\n"
            "\r\n"
            "2.4 m\r\n");
}

TEST(Composer, WritesTextAndHtmlAsAlternativesBesideAttachments) {
  Message message = Alarm();
  message.html = "<p>2.4&nbsp;m</p>\n";
  message.attachments = {File("levels.csv", 3), File("", 0)};
  EXPECT_THAT(Composed(message),
              testing::EndsWith(
                  "Content-Type: multipart/mixed; boundary=\"=_m0123abcdplantexample\"\r\n"
                  "\r\n"
                  "--=_m0123abcdplantexample\r\n"
                  "Content-Type: multipart/alternative; boundary=\"=_a0123abcdplantexample\"\r\n"
                  "\r\n"
                  "--=_a0123abcdplantexample\r\n"
                  "Content-Type: text/plain; charset=us-ascii\r\n"
                  "Content-Transfer-Encoding: 7bit\r\n"
                  "\r\n"
                  "2.4 m\r\n"
                  "--=_a0123abcdplantexample\r\n"
                  "Content-Type: text/html; charset=us-ascii\r\n"
                  "Content-Transfer-Encoding: 7bit\r\n"
                  "\r\n"
                  "<p>2.4&nbsp;m</p>\r\n"
                  "\r\n"
                  "--=_a0123abcdplantexample--\r\n"
                  "\r\n"
                  "--=_m0123abcdplantexample\r\n"
                  "Content-Type: text/csv; charset=utf-8; name=levels.csv\r\n"
                  "Content-Transfer-Encoding: base64\r\n"
                  "Content-Disposition: attachment; filename=levels.csv\r\n"
                  "\r\n"
                  "AAAA\r\n"
                  "\r\n"
                  "--=_m0123abcdplantexample\r\n"
                  "Content-Type: application/octet-stream\r\n"
                  "Content-Transfer-Encoding: base64\r\n"
                  "Content-Disposition: attachment\r\n"
                  "\r\n"
                  "\r\n"
                  "--=_m0123abcdplantexample--\r\n"));
}

TEST(Composer, HtmlAloneIsTheBody) {
  Message message = Alarm();
  message.text.clear();
  message.html = "<p>2.4 m</p>";
  EXPECT_THAT(Composed(message), HasSubstr("Content-Type: text/html; charset=us-ascii\r\n"));
  EXPECT_THAT(Composed(message), Not(HasSubstr("multipart")));
}

TEST(Composer, ShowsThatThereAreOnlyBlindCopies) {
  Message message = Alarm();
  message.to.clear();
  EXPECT_THAT(Composed(message), HasSubstr("\r\nTo: undisclosed-recipients:;\r\n"));
}

TEST(Composer, WritesCopiesAndWhereToReply) {
  Message message = Alarm();
  message.cc = {{"", "desk@plant.example"}};
  message.reply_to = {{"", "a@plant.example"}, {"", "b@plant.example"}};
  EXPECT_THAT(Composed(message), HasSubstr("\r\nCc: desk@plant.example\r\n"
                                           "Reply-To: a@plant.example, b@plant.example\r\n"));
}

TEST(Composer, WritesTheDateWithItsZone) {
  using namespace std::chrono;
  Message message = Alarm();
  const auto date = [&message](sys_seconds time, int zone) {
    message.date = time;
    message.zone_minutes = zone;
    const std::string mail = Composed(message);
    return mail.substr(6, mail.find("\r\n") - 6);
  };
  EXPECT_EQ(date(sys_days{year{2026} / 12 / 31} + hours(20) + minutes(15) + seconds(9), -570),
            "Thu, 31 Dec 2026 10:45:09 -0930");
  EXPECT_EQ(date(sys_seconds{}, 0), "Thu, 1 Jan 1970 00:00:00 +0000");
  EXPECT_EQ(date(sys_seconds::max(), 1'000'000), "Thu, 30 Dec 9999 23:59:00 +2359");
  EXPECT_EQ(date(sys_seconds::min(), -1'000'000), "Mon, 1 Jan 1900 00:01:00 -2359");
}

TEST(Composer, AddsNoLineToTheHeader) {
  Message message = Alarm();
  const std::string evil = "x\r\nBcc: spy@plant.example\nX-Evil: 1\r\r\n\r\nbody";
  message.from = {evil, evil};
  message.to = message.cc = message.reply_to = {{evil, evil}, {evil, evil}};
  message.subject = message.message_id = evil;
  message.attachments = {File(evil, 1)};
  const std::string mail = Composed(message);
  EXPECT_THAT(mail, Not(HasSubstr("\nBcc")));
  EXPECT_THAT(mail, Not(HasSubstr("\nX-Evil")));
  EXPECT_EQ(mail.find("\r\n\r\n"), mail.find("\r\n\r\n--=_m"));
  EXPECT_THAT(mail, HasSubstr("\r\nMessage-ID: <xBcc:spy@plant.exampleX-Evil:1body>\r\n"));
}

TEST(Composer, KeepsToShortLinesWithLargeInputs) {
  for (const std::string_view unit : {"x", "\xC3\xBC", "\r"}) {
    std::string large;
    while (large.size() < (1 << 18)) large += unit;
    Message message = Alarm();
    message.from = {large, large};
    message.to = {{large, "a@b"}};
    message.subject = message.text = message.html = message.message_id = large;
    message.attachments = {File(large, 1)};
    const std::string mail = Composed(message);
    for (std::size_t begin = 0; begin < mail.size();) {
      const std::size_t end = mail.find("\r\n", begin);
      ASSERT_LE(end - begin, 998U) << unit;
      begin = end + 2;
    }
  }
}

TEST(Composer, NoTextIsABoundary) {
  Message message = Alarm();
  message.text = message.html = "--=_m0123abcdplantexample--\n--=_a0123abcdplantexample\n";
  message.attachments = {File("a", 1)};
  const std::string mail = Composed(message);
  std::size_t boundaries = 0;
  for (std::size_t at = 0; (at = mail.find("\r\n--=_", at)) != mail.npos; ++at) ++boundaries;
  EXPECT_EQ(boundaries, 6U);
}

TEST(Composer, GivesTheSameOctetsInAnyPortionsAndAgain) {
  Message message = Alarm();
  message.html = "<p>\xC3\xBC</p>";
  message.attachments = {File("a.bin", 20'000), File("b.bin", 1)};
  const std::string mail = Composed(message);
  Composer composer(message, false);
  for (const std::size_t step : {1, 7, 4096, 1 << 20}) {
    composer.Rewind();
    EXPECT_EQ(ReadAll(composer, step), mail) << step;
  }
  composer.Rewind();
  std::string buffer(100, '\0');
  EXPECT_EQ(composer.Read(buffer), 100U);
  composer.Rewind();
  EXPECT_EQ(ReadAll(composer), mail);
}

TEST(Composer, FillsTheBufferUntilTheEnd) {
  Message message = Alarm();
  message.attachments = {File("a.bin", 100'000)};
  Composer composer(message, false);
  std::string buffer(16'384, '\0');
  for (std::uint64_t left = composer.size(); left > 0;) {
    const std::uint64_t count = composer.Read(buffer);
    ASSERT_EQ(count, std::min<std::uint64_t>(left, buffer.size()));
    left -= count;
  }
  EXPECT_EQ(composer.Read(buffer), 0U);
}

TEST(Composer, FailsWhereAnAttachmentIsShorterThanItWas) {
  Message message = Alarm();
  message.attachments = {File("a.bin", 10'000, 9'999)};
  Composer composer(message, false);
  EXPECT_LT(ReadAll(composer).size(), composer.size());
  EXPECT_TRUE(composer.failed());
  std::string buffer(100, '\0');
  EXPECT_EQ(composer.Read(buffer), 0U);
  composer.Rewind();
  EXPECT_FALSE(composer.failed());
}

TEST(Composer, FailsWhereAnAttachmentCannotBeOpened) {
  Message message = Alarm();
  for (const auto& open : {std::function<std::unique_ptr<Octets>()>(),
                           std::function<std::unique_ptr<Octets>()>([] { return nullptr; })}) {
    message.attachments = {{"a.bin", 1, open}};
    Composer composer(message, false);
    ReadAll(composer);
    EXPECT_TRUE(composer.failed());
  }
}

TEST(Composer, LeavesOutWhatAnAttachmentHasGrownBy) {
  Message message = Alarm();
  message.attachments = {File("a.bin", 3, 1000)};
  EXPECT_THAT(Composed(message), HasSubstr("\r\n\r\nAAAA\r\n\r\n--"));
}

TEST(Composer, NeverHasAWholeAttachmentInMemory) {
  constexpr std::uint64_t kSize = 25'000'000;
  Message message = Alarm();
  message.attachments = {File("a.bin", kSize)};
  Composer composer(message, false);
  EXPECT_GT(composer.size(), kSize * 4 / 3);
  std::string buffer(16'384, '\0');
  std::uint64_t read = 0;
  std::uint64_t most = 0;
  const auto before = mallinfo2().uordblks + mallinfo2().hblkhd;
  while (const std::size_t count = composer.Read(buffer)) {
    read += count;
    most = std::max<std::uint64_t>(most, mallinfo2().uordblks + mallinfo2().hblkhd - before);
  }
  EXPECT_EQ(read, composer.size());
  EXPECT_LT(most, 1'000'000U);
}

TEST(Composer, NamesOfAttachmentsHaveASubstituteInAscii) {
  Message message = Alarm();
  message.attachments = {
      File("\xC3\x9C"
           "bersicht 3.pdf",
           1)};
  EXPECT_THAT(
      Composed(message),
      HasSubstr("Content-Type: application/pdf; name=_bersicht_3.pdf\r\n"
                "Content-Transfer-Encoding: base64\r\n"
                "Content-Disposition: attachment; filename*=utf-8''%C3%9Cbersicht%203.pdf\r\n"));
  message.attachments = {File("daily report.pdf", 1)};
  EXPECT_THAT(Composed(message),
              HasSubstr("Content-Disposition: attachment; filename=\"daily report.pdf\"\r\n"));
  message.attachments = {File(std::string(200, 'x') + ".pdf", 1)};
  EXPECT_THAT(Composed(message), HasSubstr("name=" + std::string(56, 'x') + ".pdf\r\n"));
}

TEST(Composer, WritesUtf8OnlyWhereTheServerTakesIt) {
  Message message = Alarm();
  message.to = {{"", "j\xC3\xB6rg@plant.example"}};
  EXPECT_TRUE(NeedsSmtpUtf8(message));
  EXPECT_THAT(Composed(message, true), HasSubstr("\r\nTo: j\xC3\xB6rg@plant.example\r\n"));
  const std::string downgraded = Composed(message, false);
  EXPECT_THAT(downgraded, HasSubstr("\r\nTo: =?utf-8?q?j=C3=B6rg=40plant=2Eexample?= :;\r\n"));
  EXPECT_TRUE(std::all_of(downgraded.begin(), downgraded.end(),
                          [](char c) { return static_cast<unsigned char>(c) < 0x80; }));
  EXPECT_FALSE(NeedsSmtpUtf8(Alarm()));
}

}  // namespace
}  // namespace mail
