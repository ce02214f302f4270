// SPDX-License-Identifier: MIT
#include "runtime/cli/terminal_keys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using corvane::cli::Key;
using corvane::cli::KeyDecoder;
using corvane::cli::KeyPress;
using testing::ElementsAre;
using testing::IsEmpty;

KeyPress Text(const char* text) {
  return {Key::kText, text};
}

KeyPress Only(Key key) {
  return {key, ""};
}

TEST(KeyDecoder, KnowsWhatTerminalsSendForTheKeys) {
  KeyDecoder decoder;
  EXPECT_THAT(decoder.Take("\x1b[A\x1bOA\x1b[B\x1bOB"),
              ElementsAre(Only(Key::kUp), Only(Key::kUp), Only(Key::kDown), Only(Key::kDown)));
  EXPECT_THAT(decoder.Take("\x1b[5~\x1b[6~"),
              ElementsAre(Only(Key::kPageUp), Only(Key::kPageDown)));
  EXPECT_THAT(decoder.Take("\x1b[H\x1bOH\x1b[1~\x1b[7~"),
              ElementsAre(Only(Key::kHome), Only(Key::kHome), Only(Key::kHome), Only(Key::kHome)));
  EXPECT_THAT(decoder.Take("\x1b[F\x1bOF\x1b[4~\x1b[8~"),
              ElementsAre(Only(Key::kEnd), Only(Key::kEnd), Only(Key::kEnd), Only(Key::kEnd)));
  EXPECT_THAT(decoder.Take("\r\n\x7f\b\f"),
              ElementsAre(Only(Key::kEnter), Only(Key::kEnter), Only(Key::kBackspace),
                          Only(Key::kBackspace), Only(Key::kRedraw)));
  EXPECT_THAT(decoder.Take("q水"), ElementsAre(Text("q"), Text("水")));
  EXPECT_FALSE(decoder.Waiting());
}

TEST(KeyDecoder, AcceptsSequencesInPieces) {
  const std::string octets = "\x1b[5~水\x1bOA";
  KeyDecoder decoder;
  std::vector<KeyPress> keys;
  for (const char octet : octets) {
    for (const KeyPress& key : decoder.Take({&octet, 1})) keys.push_back(key);
  }
  EXPECT_THAT(keys, ElementsAre(Only(Key::kPageUp), Text("水"), Only(Key::kUp)));
}

TEST(KeyDecoder, DropsUnknownSequencesAsAWhole) {
  KeyDecoder decoder;
  EXPECT_THAT(decoder.Take("\x1b[1;5C\x1b[15~\x1bOP\x1b[<0;1;1Mq"), ElementsAre(Text("q")));
  EXPECT_THAT(decoder.Take("\x01\x02\xff\xc0q"), ElementsAre(Text("q")));
}

TEST(KeyDecoder, EscByItselfIsAKeyWhenNothingFollows) {
  KeyDecoder decoder;
  EXPECT_THAT(decoder.Take("\x1b"), IsEmpty());
  EXPECT_TRUE(decoder.Waiting());
  EXPECT_THAT(decoder.TimeOut(), ElementsAre(Only(Key::kEscape)));
  EXPECT_FALSE(decoder.Waiting());
  EXPECT_THAT(decoder.TimeOut(), IsEmpty());
  EXPECT_THAT(decoder.Take("\x1bq"), ElementsAre(Only(Key::kEscape), Text("q")));
  EXPECT_THAT(decoder.Take("\xe6"), IsEmpty());
  EXPECT_THAT(decoder.TimeOut(), IsEmpty()) << "half a character";
}

TEST(KeyDecoder, KnowsTheSequencesOfAStrangeTerminal) {
  KeyDecoder decoder({{"\x1bi", Key::kPageUp}});
  EXPECT_THAT(decoder.Take("\x1b"), IsEmpty());
  EXPECT_THAT(decoder.Take("i"), ElementsAre(Only(Key::kPageUp)));
}

TEST(KeyDecoder, ASequenceThatNeverEndsIsDropped) {
  KeyDecoder decoder;
  static_cast<void>(decoder.Take("\x1b[" + std::string(100, '1')));
  EXPECT_FALSE(decoder.Waiting());
}

}  // namespace
