// SPDX-License-Identifier: MIT
#include "libs/gsm/seven_bit_text.h"

#include <gtest/gtest.h>

#include "libs/gsm/utf16.h"

namespace gsm {
namespace {

TEST(DefaultAlphabet, HasTheCharactersThatDifferFromAscii) {
  EXPECT_EQ(DecodeSeptets(Octets{0x00, 0x02, 0x11, 0x24, 0x40, 0x5B, 0x5F, 0x60, 0x7F}),
            "@$_¤¡Ä§¿à");
}

TEST(DefaultAlphabet, ReachesTheExtensionTableThroughAnEscape) {
  EXPECT_EQ(DecodeSeptets(Octets{0x1B, 0x65, 0x1B, 0x3C, 0x1B, 0x3E, 0x1B, 0x14}), "€[]^");
  EXPECT_EQ(EncodeDefaultAlphabet(U'€'), (Octets{0x1B, 0x65}));
}

TEST(DefaultAlphabet, ShowsAnUnknownExtensionAsTheMainTableDoes) {
  EXPECT_EQ(DecodeSeptets(Octets{0x1B, 0x41}), "A");
}

TEST(DefaultAlphabet, ShowsAnEscapeThatEscapesNothingAsASpace) {
  EXPECT_EQ(DecodeSeptets(Octets{0x41, 0x1B}), "A ");
  EXPECT_EQ(DecodeSeptets(Octets{0x1B, 0x1B}), " ");
}

TEST(DefaultAlphabet, HasNoOtherCharacters) {
  for (const char32_t character : std::u32string_view(U"çЖ`\t😀")) {
    EXPECT_EQ(EncodeDefaultAlphabet(character), std::nullopt);
  }
}

TEST(DefaultAlphabet, EveryCharacterRoundTrips) {
  for (int value = 0; value < 128; ++value) {
    if (value == 0x1B) continue;  // the escape is not a character
    const Octets septet{static_cast<std::uint8_t>(value)};
    const auto text = CodePoints(DecodeSeptets(septet));
    ASSERT_TRUE(text && text->size() == 1) << value;
    EXPECT_EQ(EncodeDefaultAlphabet(text->front()), septet) << value;
  }
}

TEST(NationalTables, ReplaceTheDefaultOnes) {
  const Shifts turkish{Language::kTurkish, Language::kTurkish};
  EXPECT_EQ(DecodeSeptets(Octets{0x07, 0x0B, 0x40, 0x60, 0x1B, 0x73}, turkish), "ıĞİçş");
  const Shifts spanish{Language::kSpanish, Language::kSpanish};  // it has no locking table
  EXPECT_EQ(DecodeSeptets(Octets{0x40, 0x1B, 0x61, 0x1B, 0x09}, spanish), "¡áç");
  const Shifts hindi{Language::kHindi, Language::kDefault};
  EXPECT_EQ(DecodeSeptets(Octets{0x29, 0x2D, 0x63, 0x1B, 0x65}, hindi), "(\u0927c€");
}

TEST(NationalTables, ShowAnUndefinedSingleShiftAsTheLockingTableDoes) {
  EXPECT_EQ(DecodeSeptets(Octets{0x1B, 0x07}, {Language::kTurkish, Language::kPortuguese}), "ı");
  EXPECT_EQ(DecodeSeptets(Octets{0x1B, 0x1B}, {Language::kTurkish, Language::kTurkish}), " ");
}

TEST(NationalTables, OfReservedLanguagesAreTheDefaultOnes) {
  for (const int reserved : {14, 15, 127, 255}) {
    const auto language = static_cast<Language>(reserved);
    EXPECT_EQ(DecodeSeptets(Octets{0x40, 0x1B, 0x65}, {language, language}), "¡€") << reserved;
  }
}

}  // namespace
}  // namespace gsm
