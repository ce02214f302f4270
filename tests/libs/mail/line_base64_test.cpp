// SPDX-License-Identifier: MIT
#include "libs/mail/line_base64.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace mail {
namespace {

/// Gives out a text, at most `step` octets at a time.
class SlowOctets : public Octets {
 public:
  SlowOctets(std::string text, std::size_t step) : text_(std::move(text)), step_(step) {}
  std::size_t Read(std::span<char> buffer) override {
    const std::size_t count = text_.copy(buffer.data(), std::min(step_, buffer.size()), place_);
    place_ += count;
    return count;
  }

 private:
  std::string text_;
  std::size_t step_;
  std::size_t place_ = 0;
};

std::string ReadAll(LineBase64& encoder, std::size_t step) {
  std::string text;
  std::string buffer(step, '\0');
  while (const std::size_t count = encoder.Read(buffer)) text.append(buffer, 0, count);
  return text;
}

std::string Varied(std::size_t size) {
  std::string octets(size, '\0');
  for (std::size_t i = 0; i < size; ++i) octets[i] = static_cast<char>(i * 131 >> 3);
  return octets;
}

TEST(Base64, EncodesTheExamplesOfTheStandard) {  // RFC 4648 clause 10
  EXPECT_EQ(Base64(""), "");
  EXPECT_EQ(Base64("f"), "Zg==");
  EXPECT_EQ(Base64("fo"), "Zm8=");
  EXPECT_EQ(Base64("foo"), "Zm9v");
  EXPECT_EQ(Base64("foob"), "Zm9vYg==");
  EXPECT_EQ(Base64("fooba"), "Zm9vYmE=");
  EXPECT_EQ(Base64("foobar"), "Zm9vYmFy");
  EXPECT_EQ(Base64("\xFB\xEF\xFF"), "++//");
}

TEST(Base64, LinesHave76Characters) {
  const std::string digits(76, 'A');
  EXPECT_EQ(Base64Lines(""), "");
  EXPECT_EQ(Base64Lines(std::string(57, '\0')), digits + "\r\n");
  EXPECT_EQ(Base64Lines(std::string(58, '\0')), digits + "\r\nAA==\r\n");
}

TEST(LineBase64, GivesTheSameInAnyPortionsAndAnnouncesItsSize) {
  for (const std::size_t size : {0, 1, 2, 3, 56, 57, 58, 8207, 8208, 8209, 20000}) {
    const std::string octets = Varied(size);
    const std::string expected = Base64Lines(octets);
    EXPECT_EQ(Base64LinesSize(size), expected.size()) << size;
    for (const std::size_t step : {1, 77, 65536}) {
      LineBase64 encoder(std::make_unique<SlowOctets>(octets, step), size);
      EXPECT_EQ(ReadAll(encoder, step), expected) << size << " in portions of " << step;
      EXPECT_FALSE(encoder.failed());
    }
  }
}

TEST(LineBase64, LeavesOutWhatIsBeyondTheSize) {
  LineBase64 encoder(std::make_unique<SlowOctets>("foobar", 6), 3);
  EXPECT_EQ(ReadAll(encoder, 10), "Zm9v\r\n");
  EXPECT_FALSE(encoder.failed());
}

TEST(LineBase64, FailsWhereOctetsAreMissing) {
  LineBase64 encoder(std::make_unique<SlowOctets>("foobar", 6), 7);
  EXPECT_EQ(ReadAll(encoder, 10), "");
  EXPECT_TRUE(encoder.failed());
  LineBase64 nothing(nullptr, 1);
  EXPECT_EQ(ReadAll(nothing, 10), "");
  EXPECT_TRUE(nothing.failed());
}

}  // namespace
}  // namespace mail
