// SPDX-License-Identifier: MIT
#include "libs/mail/text_part.h"

#include <gtest/gtest.h>

namespace mail {
namespace {

std::string Encoding(std::string_view text) {
  return EncodeText(text).encoding;
}

TEST(TextPart, PlainTextTravelsAsItIs) {
  const TextPart part = EncodeText("Level too high: 2.4 m\n\nPlease check = now\t(pump 3).\r\n");
  EXPECT_EQ(part.charset, "us-ascii");
  EXPECT_EQ(part.encoding, "7bit");
  EXPECT_EQ(part.body, "Level too high: 2.4 m\r\n\r\nPlease check = now\t(pump 3).\r\n");
  EXPECT_EQ(EncodeText("").body, "");
  EXPECT_EQ(Encoding(std::string(78, 'x')), "7bit");
}

TEST(TextPart, WhatServersAndReadersTouchIsEncoded) {
  EXPECT_EQ(EncodeText("a\n.\n.b").body, "a\r\n=2E\r\n=2Eb");
  EXPECT_EQ(EncodeText("From here\nFrom\n From ").body, "=46rom here\r\nFrom\r\n From=20");
  EXPECT_EQ(EncodeText("a \nb\t\n").body, "a=20\r\nb=09\r\n");
  EXPECT_EQ(EncodeText("a=b\x1B[0m").body, "a=3Db=1B[0m");
  EXPECT_EQ(EncodeText("--=_mabc").body, "--=3D_mabc");
  EXPECT_EQ(EncodeText(".").charset, "us-ascii");
}

TEST(TextPart, OnlyLfAndCrlfEndALine) {
  EXPECT_EQ(EncodeText("a\rb\r\nc\nd\r\r\ne\n\rf\r").body, "a=0Db\r\nc\r\nd=0D\r\ne\r\n=0Df=0D");
}

TEST(TextPart, FewLettersOutsideOfAsciiAreQuoted) {
  const TextPart part = EncodeText(
      "Pegel zu hoch, bitte pr\xC3\xBC"
      "fen");
  EXPECT_EQ(part.charset, "utf-8");
  EXPECT_EQ(part.encoding, "quoted-printable");
  EXPECT_EQ(part.body, "Pegel zu hoch, bitte pr=C3=BCfen");
}

TEST(TextPart, ManyLettersOutsideOfAsciiAreBase64) {
  const TextPart part = EncodeText("\xD0\xBF\xD0\xB0\xD1\x81\n\xD0\xBE\r");
  EXPECT_EQ(part.charset, "utf-8");
  EXPECT_EQ(part.encoding, "base64");
  EXPECT_EQ(part.body, "0L/QsNGBDQrQvg0=\r\n");
}

TEST(TextPart, AsciiIsNeverBase64) {
  EXPECT_EQ(Encoding("\x01\x02\x03\x04"), "quoted-printable");
}

TEST(TextPart, LongLinesAreDivided) {
  const std::string word(75, 'x');
  EXPECT_EQ(EncodeText(word + "yyyyy").body, word + "=\r\nyyyyy");
  EXPECT_EQ(EncodeText(std::string(74, 'x') + "=yyyyy").body,
            std::string(74, 'x') + "=\r\n=3Dyyyyy");
  EXPECT_EQ(EncodeText(word + ".From x").body, word + "=\r\n=2EFrom x");
  EXPECT_EQ(EncodeText(word + "From x").body, word + "=\r\n=46rom x");
  const std::string body = EncodeText(std::string(1 << 20, 'x')).body;
  for (std::size_t begin = 0; begin < body.size();) {
    const std::size_t end = std::min(body.find("\r\n", begin), body.size());
    ASSERT_LE(end - begin, 76U);
    begin = end + 2;
  }
}

TEST(TextPart, InvalidUtf8IsReplaced) {
  EXPECT_EQ(EncodeText("level \xFF").body, "level =EF=BF=BD");
}

}  // namespace
}  // namespace mail
