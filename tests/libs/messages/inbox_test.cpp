// SPDX-License-Identifier: MIT
#include "libs/messages/inbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace messages {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr WallTime kNoon = std::chrono::sys_days(std::chrono::year(2026) / 11 / 22) + hours(12);

/// A disk that is as slow as a test wants, and what a store would load from it after a restart.
class FakeDisk {
 public:
  InboxHooks Hooks() {
    return {[this] { return next_id_++; },
            [this](std::vector<Change> changes) {
              queue_.push_back(std::move(changes));
              if (prompt_) Sync();
              return static_cast<std::uint64_t>(queue_.size());
            },
            [this](std::uint64_t sequence) { return sequence <= synced_; },
            [](std::span<const Part> parts) {
              PartsText content{{}, true};
              for (const Part& part : parts) {
                content.text += part.pdu.substr(part.pdu.find('|') + 1);
                content.binary = content.binary && part.pdu.starts_with("bin");
              }
              return content;
            },
            [](const Part& one, const Part& other) {
              return one.pdu.substr(one.pdu.find('|')) == other.pdu.substr(other.pdu.find('|'));
            }};
  }

  void SetPrompt(bool prompt) { prompt_ = prompt; }
  void Sync() {
    while (synced_ < queue_.size()) {
      for (const Change& change : queue_[synced_]) {
        std::visit([this](const auto& row) { Apply(row); }, change);
      }
      ++synced_;
    }
  }
  void Kill() { queue_.resize(synced_); }
  [[nodiscard]] Content content() const {
    Content content;
    for (const auto& [id, message] : inbox_) content.inbox.push_back(message);
    for (const auto& [group, parts] : parts_) {
      for (const auto& [sequence, part] : parts) content.parts.push_back(part);
    }
    for (const auto& [place, held] : held_) content.held.push_back(held);
    return content;
  }
  [[nodiscard]] std::size_t transactions() const { return queue_.size(); }

 private:
  void Apply(const Incoming& message) { inbox_[message.id] = message; }
  void Apply(const AcceptIncoming& accepted) { inbox_.erase(accepted.id); }
  void Apply(const Part& part) { parts_[part.group][part.sequence] = part; }
  void Apply(const RemoveParts& removed) { parts_.erase(removed.group); }
  void Apply(const Held& held) { held_[{held.route, held.index}] = held; }
  void Apply(const RemoveHeld& removed) { held_.erase({removed.route, removed.index}); }
  template <class Row>
  void Apply(const Row& /*of an outbox*/) {
    ADD_FAILURE() << "an inbox does not write such a row";
  }

  bool prompt_ = true;
  std::int64_t next_id_ = 100;
  std::size_t synced_ = 0;
  std::vector<std::vector<Change>> queue_;
  std::map<std::int64_t, Incoming> inbox_;
  std::map<std::int64_t, std::map<int, Part>> parts_;
  std::map<std::pair<std::string, int>, Held> held_;
};

class InboxTest : public testing::Test {
 protected:
  InboxTest() { Load({}); }

  void Load(const Content& content) {
    inbox_->Load(content.inbox, content.parts, content.held);
    while (!inbox_->loaded()) inbox_->Tick(now_);
  }

  /// As after kill -9: only what is on the disk is left.
  void Restart() {
    disk_.Kill();
    inbox_.emplace(disk_.Hooks());
    Load(disk_.content());
  }
  void Pass(std::chrono::milliseconds time) {
    now_.steady += time;
    now_.wall += time;
    inbox_->Tick(now_);
  }
  static Incoming Whole(const std::string& text, const std::string& route = "1") {
    Incoming message;
    message.route = route;
    message.sender = "+491";
    message.text = text;
    return message;
  }
  static Part Of(int sequence, int total, int reference = 7, const std::string& sender = "+491") {
    Part part;
    part.route = "1";
    part.sender = sender;
    part.reference = reference;
    part.total = total;
    part.sequence = sequence;
    part.pdu = sender + "/" + std::to_string(reference) + "|" + std::to_string(sequence) + ".";
    return part;
  }
  void Take(const Part& part) { inbox_->TakePart(part, std::nullopt, now_); }
  /// Accepts everything on a route; the texts in the order in which they were offered.
  std::vector<std::string> All(const std::string& route = "1") {
    std::vector<std::string> texts;
    while (const Incoming* message = inbox_->Offered(route)) {
      texts.push_back(message->text);
      EXPECT_TRUE(inbox_->Accept(route, message->id, now_));
    }
    return texts;
  }
  int KindOfFirst() {
    const Incoming* const first = inbox_->Offered("1");
    return first == nullptr ? -1 : first->kind;
  }

  Now now_{std::chrono::steady_clock::time_point(hours(5)), kNoon};
  FakeDisk disk_;
  std::optional<Inbox> inbox_{disk_.Hooks()};
};

TEST_F(InboxTest, OffersMessagesInTheOrderInWhichTheyWereCompleted) {
  inbox_->Take(Whole("first"), std::nullopt, now_);
  Take(Of(1, 2));
  inbox_->Take(Whole("second"), std::nullopt, now_);
  Take(Of(2, 2));
  EXPECT_EQ(inbox_->Waiting("1"), 3u);
  EXPECT_THAT(All(), ElementsAre("first", "second", "1.2."));
  EXPECT_EQ(inbox_->Waiting("1"), 0u);
}

TEST_F(InboxTest, OffersAMessageOnlyOnceItIsOnTheDisk) {
  disk_.SetPrompt(false);
  inbox_->Take(Whole("a"), Place{1, "AA"}, now_);
  EXPECT_EQ(inbox_->Offered("1"), nullptr);
  EXPECT_FALSE(inbox_->MayDelete("1", 1));
  disk_.Sync();
  ASSERT_NE(inbox_->Offered("1"), nullptr);
  EXPECT_TRUE(inbox_->MayDelete("1", 1));
}

TEST_F(InboxTest, OffersTheNextMessageOnlyOnceTheRemovalIsOnTheDisk) {
  inbox_->Take(Whole("a"), std::nullopt, now_);
  inbox_->Take(Whole("b"), std::nullopt, now_);
  disk_.SetPrompt(false);
  EXPECT_TRUE(inbox_->Accept("1", inbox_->Offered("1")->id, now_));
  EXPECT_EQ(inbox_->Offered("1"), nullptr);
  EXPECT_EQ(inbox_->Waiting("1"), 2u) << "the accepted one is still in the store";
  disk_.Sync();
  EXPECT_EQ(inbox_->Waiting("1"), 1u);
  EXPECT_THAT(All(), ElementsAre("b"));
  disk_.Sync();
  EXPECT_THAT(disk_.content().inbox, IsEmpty());
}

TEST_F(InboxTest, AcceptsOnlyTheMessageThatIsOffered) {
  inbox_->Take(Whole("a"), std::nullopt, now_);
  inbox_->Take(Whole("b"), std::nullopt, now_);
  const std::int64_t first = inbox_->Offered("1")->id;
  EXPECT_FALSE(inbox_->Accept("1", first + 1, now_));
  EXPECT_FALSE(inbox_->Accept("2", first, now_));
  EXPECT_TRUE(inbox_->Accept("1", first, now_));
  EXPECT_FALSE(inbox_->Accept("1", first, now_)) << "another block has accepted it";
  EXPECT_THAT(All(), ElementsAre("b"));
}

TEST_F(InboxTest, OffersAMessageAgainAfterARestartUnlessItWasAccepted) {
  inbox_->Take(Whole("a"), std::nullopt, now_);
  inbox_->Take(Whole("b"), std::nullopt, now_);
  const std::int64_t first = inbox_->Offered("1")->id;
  Restart();
  ASSERT_NE(inbox_->Offered("1"), nullptr);
  EXPECT_EQ(inbox_->Offered("1")->id, first);
  EXPECT_TRUE(inbox_->Accept("1", first, now_));
  Restart();
  EXPECT_THAT(All(), ElementsAre("b"));
  Restart();
  EXPECT_THAT(All(), IsEmpty());
}

TEST_F(InboxTest, KeepsTheMessagesOfEachRouteApart) {
  inbox_->Take(Whole("of one", "1"), Place{3, "AA"}, now_);
  inbox_->Take(Whole("of two", "2"), std::nullopt, now_);
  EXPECT_FALSE(inbox_->IsHeld("2", {3, "AA"}));
  EXPECT_THAT(All("2"), ElementsAre("of two"));
  EXPECT_THAT(All("1"), ElementsAre("of one"));
  EXPECT_EQ(inbox_->Waiting("3"), 0u);
}

TEST_F(InboxTest, JoinsPartsInEveryOrderAndAcrossRestarts) {
  std::vector<int> order{1, 2, 3, 4};
  do {
    for (const int sequence : order) {
      Take(Of(sequence, 4));
      Restart();
    }
    EXPECT_THAT(All(), ElementsAre("1.2.3.4.")) << testing::PrintToString(order);
    EXPECT_THAT(disk_.content().parts, IsEmpty());
  } while (std::ranges::next_permutation(order).found);
}

TEST_F(InboxTest, JoinsOnlyPartsOfTheSameSenderReferenceWidthAndTotal) {
  Part wide = Of(2, 2);
  wide.wide = true;
  for (const Part& part :
       {Of(1, 2), Of(2, 2, 8), Of(2, 2, 7, "+492"), Of(2, 3), wide, Of(2, 255)}) {
    Take(part);
  }
  EXPECT_THAT(All(), IsEmpty());
  Take(Of(2, 2));
  EXPECT_THAT(All(), ElementsAre("1.2."));
}

TEST_F(InboxTest, TakesAMessageOfOnePart) {
  Take(Of(1, 1));
  EXPECT_EQ(KindOfFirst(), static_cast<int>(IncomingKind::kText));
  EXPECT_THAT(All(), ElementsAre("1."));
}

TEST_F(InboxTest, Takes255Parts) {
  std::string text;
  for (int sequence = 255; sequence >= 1; --sequence) Take(Of(sequence, 255));
  for (int sequence = 1; sequence <= 255; ++sequence) text += std::to_string(sequence) + ".";
  EXPECT_THAT(All(), ElementsAre(text));
}

TEST_F(InboxTest, TakesAPartWithoutAPlaceInItsMessageAsAMessage) {
  for (const auto& [sequence, total] :
       {std::pair(0, 2), std::pair(3, 2), std::pair(-1, 2), std::pair(1, 0), std::pair(1, 256)}) {
    Take(Of(sequence, total));
    EXPECT_THAT(All(), ElementsAre(std::to_string(sequence) + ".")) << sequence << "/" << total;
  }
}

TEST_F(InboxTest, DropsAPartThatItHasAndLetsTheModemDeleteIt) {
  inbox_->TakePart(Of(1, 2), Place{1, "A"}, now_);
  inbox_->TakePart(Of(1, 2), Place{2, "A"}, now_);
  EXPECT_TRUE(inbox_->MayDelete("1", 1));
  EXPECT_TRUE(inbox_->MayDelete("1", 2));
  Part later = Of(1, 2);  // sent again, since its confirmation was lost
  later.pdu.insert(0, "later");
  Take(later);
  Take(Of(2, 2));
  EXPECT_THAT(All(), ElementsAre("1.2."));
  EXPECT_THAT(disk_.content().parts, IsEmpty());
}

TEST_F(InboxTest, DropsAPartThatComesAgainAfterItsMessageIsComplete) {
  Take(Of(1, 2));
  Take(Of(2, 2));
  Take(Of(2, 2));
  EXPECT_THAT(All(), ElementsAre("1.2."));
  EXPECT_THAT(disk_.content().parts, IsEmpty());
}

TEST_F(InboxTest, HandsOverAnIncompleteMessageWhenItsReferenceIsUsedAgain) {
  Take(Of(1, 2));
  Part other = Of(1, 2);
  other.pdu += "another text";
  Take(other);
  EXPECT_EQ(KindOfFirst(), static_cast<int>(IncomingKind::kTextWithGaps));
  EXPECT_THAT(All(), ElementsAre("1.[part 2 of 2 is missing]"));
  Take(Of(2, 2));
  EXPECT_THAT(All(), ElementsAre("1.another text2."));
}

TEST_F(InboxTest, HandsOverAnIncompleteMessageAfterADay) {
  Take(Of(2, 4));
  Take(Of(4, 4));
  Pass(hours(24) - minutes(1));
  EXPECT_THAT(All(), IsEmpty());
  Pass(minutes(2));
  EXPECT_EQ(KindOfFirst(), static_cast<int>(IncomingKind::kTextWithGaps));
  EXPECT_THAT(All(), ElementsAre("[part 1 of 4 is missing]2.[part 3 of 4 is missing]4."));
  EXPECT_THAT(disk_.content().parts, IsEmpty());
}

TEST_F(InboxTest, CountsTheDayAcrossRestarts) {
  Take(Of(1, 2));
  Pass(hours(20));
  Restart();
  Pass(hours(3));
  EXPECT_THAT(All(), IsEmpty());
  Pass(hours(2));
  EXPECT_THAT(All(), ElementsAre("1.[part 2 of 2 is missing]"));
}

TEST_F(InboxTest, CountsTheDayOfAMessageFromItsFirstPart) {
  Take(Of(1, 3));
  Pass(hours(20));
  Take(Of(2, 3));
  Restart();
  Pass(hours(5));
  EXPECT_THAT(All(), ElementsAre("1.2.[part 3 of 3 is missing]"));
}

TEST_F(InboxTest, WaitsADayAgainWhereTheClockWasNotSet) {
  const WallTime unset = WallTime(hours(1));
  now_.wall = unset;
  Take(Of(1, 2));
  now_.wall = kNoon;  // set while the program runs: the steady clock counts
  inbox_->Tick(now_);
  EXPECT_THAT(All(), IsEmpty());
  Restart();
  inbox_->Tick(now_);
  EXPECT_THAT(All(), IsEmpty()) << "first seen in 1970";
  Pass(hours(25));
  EXPECT_THAT(All(), ElementsAre("1.[part 2 of 2 is missing]"));

  Take(Of(1, 2, 8));
  now_.wall = unset;  // the next start, before the clock is set
  Restart();
  inbox_->Tick(now_);
  EXPECT_THAT(All(), IsEmpty());
  Pass(hours(25));
  EXPECT_THAT(All(), ElementsAre("1.[part 2 of 2 is missing]"));
}

TEST_F(InboxTest, MarksBinaryMessagesEvenWithGaps) {
  Part part = Of(1, 2);
  part.pdu = "bin|00FF";
  Take(part);
  Pass(hours(25));
  EXPECT_EQ(KindOfFirst(), static_cast<int>(IncomingKind::kBinary));
  EXPECT_THAT(All(), ElementsAre("00FF[part 2 of 2 is missing]"));
}

TEST_F(InboxTest, TakesSenderAndTimeFromTheFirstPart) {
  Part second = Of(2, 2);
  second.time = kNoon + minutes(2);
  second.has_time = true;
  Part first = Of(1, 2);
  first.time = kNoon + minutes(1);
  first.has_time = true;
  Take(second);
  Take(first);
  const Incoming* const message = inbox_->Offered("1");
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(message->sender, "+491");
  EXPECT_TRUE(message->has_time);
  EXPECT_EQ(message->time, kNoon + minutes(1));
  EXPECT_EQ(message->received, now_.wall);
}

TEST_F(InboxTest, RemembersWhatTheModemHoldsUntilItIsNoLongerListed) {
  inbox_->Take(Whole("a"), Place{4, "AA"}, now_);
  EXPECT_TRUE(inbox_->IsHeld("1", {4, "AA"}));
  EXPECT_FALSE(inbox_->IsHeld("1", {5, "AA"})) << "in another place it is another message";
  EXPECT_FALSE(inbox_->IsHeld("1", {4, "AB"})) << "a new message in the same place";
  All();
  Restart();
  EXPECT_TRUE(inbox_->IsHeld("1", {4, "AA"})) << "accepted, but not deleted yet";
  inbox_->KeepHeld("1", {3, 4});
  EXPECT_TRUE(inbox_->IsHeld("1", {4, "AA"}));
  inbox_->KeepHeld("1", {3});
  EXPECT_FALSE(inbox_->IsHeld("1", {4, "AA"}));
  EXPECT_FALSE(inbox_->MayDelete("1", 4));
  Restart();
  EXPECT_FALSE(inbox_->IsHeld("1", {4, "AA"}));
}

TEST_F(InboxTest, LetsANewMessageTakeAPlaceThatAnotherHeld) {
  inbox_->Take(Whole("a"), Place{4, "AA"}, now_);
  inbox_->Take(Whole("b"), Place{4, "BB"}, now_);
  EXPECT_TRUE(inbox_->IsHeld("1", {4, "BB"}));
  EXPECT_FALSE(inbox_->IsHeld("1", {4, "AA"}));
  EXPECT_EQ(disk_.content().held.size(), 1u);
}

TEST_F(InboxTest, HoldsWhatIsNotForTheProgram) {
  disk_.SetPrompt(false);
  inbox_->Hold("1", {9, "06"});
  EXPECT_TRUE(inbox_->IsHeld("1", {9, "06"}));
  EXPECT_FALSE(inbox_->MayDelete("1", 9));
  disk_.Sync();
  EXPECT_TRUE(inbox_->MayDelete("1", 9));
  EXPECT_EQ(inbox_->Waiting("1"), 0u);
}

TEST_F(InboxTest, WritesAMessageAndItsPlaceTogether) {
  disk_.SetPrompt(false);
  inbox_->Take(Whole("a"), Place{1, "AA"}, now_);
  inbox_->TakePart(Of(1, 2), Place{2, "BB"}, now_);
  inbox_->TakePart(Of(2, 2), Place{3, "CC"}, now_);
  EXPECT_EQ(disk_.transactions(), 3u);
}

TEST_F(InboxTest, KeepsABoundedNumberOfParts) {
  std::size_t handed_over = 0;
  for (int i = 0; i < 10'000; ++i) {
    Take(Of(2, 3, i % 256, "+49" + std::to_string(i)));
    for (const std::string& text : All()) {
      EXPECT_THAT(text, StartsWith("[part 1 of 3 is missing]2."));
      ++handed_over;
    }
  }
  EXPECT_EQ(handed_over, 10'000 - Inbox::kMostParts);
  EXPECT_EQ(disk_.content().parts.size(), Inbox::kMostParts);
}

TEST_F(InboxTest, HandsOverTheOldestMessageWhenThereAreTooManyParts) {
  Take(Of(1, 2, 1, "oldest"));
  for (int i = 1; i < 10; ++i) {
    for (int sequence = 1; sequence < 255; ++sequence) Take(Of(sequence, 255, i));
  }
  const auto texts = All();
  ASSERT_GE(texts.size(), 1u);
  EXPECT_EQ(texts[0], "1.[part 2 of 2 is missing]");
  Take(Of(255, 255, 9));
  EXPECT_THAT(All(), ElementsAre(HasSubstr("253.254.255.")));
}

TEST_F(InboxTest, IsFullWithTenThousandMessagesUntilOneIsAccepted) {
  for (std::size_t i = 0; i < Inbox::kMostWaiting; ++i) {
    EXPECT_FALSE(inbox_->IsFull("1"));
    inbox_->Take(Whole("x"), std::nullopt, now_);
  }
  EXPECT_TRUE(inbox_->IsFull("1"));
  EXPECT_FALSE(inbox_->IsFull("2"));
  EXPECT_TRUE(inbox_->Accept("1", inbox_->Offered("1")->id, now_));
  EXPECT_FALSE(inbox_->IsFull("1"));
}

TEST_F(InboxTest, IsFullWithLongTextsEarlier) {
  const std::string long_text(40'000, 'x');
  std::size_t taken = 0;
  for (; !inbox_->IsFull("1") && taken < Inbox::kMostWaiting; ++taken) {
    inbox_->Take(Whole(long_text), std::nullopt, now_);
  }
  EXPECT_EQ(taken, Inbox::kMostText / long_text.size() + 1);
  Restart();
  EXPECT_TRUE(inbox_->IsFull("1"));
  All();
  EXPECT_FALSE(inbox_->IsFull("1"));
}

TEST_F(InboxTest, WritesEverythingAgainWhenTheFileWasCreatedAgain) {
  inbox_->Take(Whole("a"), Place{1, "AA"}, now_);
  Take(Of(1, 2));
  FakeDisk fresh;
  disk_ = fresh;
  inbox_->WriteAgain(now_);
  EXPECT_EQ(disk_.content().inbox.size(), 1u);
  EXPECT_EQ(disk_.content().parts.size(), 1u);
  EXPECT_EQ(disk_.content().held.size(), 1u);
  Restart();
  Take(Of(2, 2));
  EXPECT_THAT(All(), ElementsAre("a", "1.2."));
}

TEST_F(InboxTest, WhatWaitsIsLoadedInManyCallsInItsOrder) {
  constexpr int kMany = 5'000;
  std::vector<std::string> texts;
  for (int i = 0; i < kMany; ++i) {
    texts.push_back(std::to_string(i));
    inbox_->Take(Whole(texts.back()), std::nullopt, now_);
  }
  const Content content = disk_.content();
  inbox_.emplace(disk_.Hooks());
  inbox_->Load(content.inbox, content.parts, content.held);
  inbox_->Tick(now_);
  EXPECT_LE(inbox_->Waiting("1"), 200u) << "one call would take too long";
  EXPECT_FALSE(inbox_->loaded());
  for (int i = 0; i < 100; ++i) inbox_->Tick(now_);
  EXPECT_TRUE(inbox_->loaded());
  EXPECT_EQ(All(), texts);
}

TEST_F(InboxTest, AMessageIsNotHandedOverWhileItsPartsAreBeingLoaded) {
  constexpr int kTotal = 250;
  for (int i = 1; i < kTotal; ++i) Take(Of(i, kTotal));
  const Content content = disk_.content();
  inbox_.emplace(disk_.Hooks());
  inbox_->Load(content.inbox, content.parts, content.held);
  now_.steady += hours(25);
  now_.wall += hours(25);
  inbox_->Tick(now_);
  EXPECT_EQ(inbox_->Waiting("1"), 0u);
  while (!inbox_->loaded()) inbox_->Tick(now_);
  Pass(std::chrono::seconds(1));
  ASSERT_EQ(inbox_->Waiting("1"), 1u);
  EXPECT_THAT(All().front(), testing::HasSubstr("1.2.3."));
}

TEST_F(InboxTest, WritesAlsoWhatIsNotLoadedYetWhenTheFileWasCreatedAgain) {
  for (int i = 0; i < 500; ++i) inbox_->Take(Whole("a"), std::nullopt, now_);
  const Content content = disk_.content();
  inbox_.emplace(disk_.Hooks());
  inbox_->Load(content.inbox, content.parts, content.held);
  FakeDisk fresh;
  disk_ = fresh;
  inbox_->WriteAgain(now_);
  EXPECT_EQ(disk_.content().inbox.size(), 500u);
}

TEST_F(InboxTest, LeavesOutRowsThatMakeNoSense) {
  inbox_.emplace(disk_.Hooks());
  Part numbered = Of(1, 2);
  numbered.group = INT64_MAX;
  inbox_->Load({}, {Of(0, 2), Of(3, 2), Of(1, 1000), numbered}, {});
  Pass(hours(25));
  EXPECT_THAT(All(), IsEmpty());
}

TEST_F(InboxTest, APartOfAnotherMessageDoesNotDisturbTheOneWhoseNumberItHas) {
  inbox_.emplace(disk_.Hooks());
  Part own = Of(1, 3);
  Part other = Of(2, 3);
  other.route = "2";
  own.group = other.group = 7;
  inbox_->Load({}, {own, other}, {});
  Pass(hours(1));
  Take(Of(2, 3));
  Pass(hours(1));
  EXPECT_THAT(All(), IsEmpty()) << "two of three";
  Take(Of(3, 3));
  EXPECT_THAT(All(), testing::SizeIs(1));
}

TEST_F(InboxTest, KilledAtAnyMomentDeliversEachMessageOnce) {
  constexpr int kMessages = 400;
  std::mt19937 random(12);
  std::map<int, std::string> modem;  // place to PDU
  for (int i = 0; i < kMessages; ++i) modem[i] = "message " + std::to_string(i);
  std::vector<std::string> accepted;
  disk_.SetPrompt(false);
  for (int round = 0; round < 100'000 && (!modem.empty() || !disk_.content().inbox.empty());
       ++round) {
    switch (random() % 6) {
      case 0: {  // a list, of which some messages are taken
        std::set<int> places;
        int budget = static_cast<int>(random() % 20);
        for (const auto& [index, pdu] : modem) {
          places.insert(index);
          if (inbox_->IsHeld("1", {index, pdu}) || budget-- <= 0) continue;
          inbox_->Take(Whole(pdu), Place{index, pdu}, now_);
        }
        inbox_->KeepHeld("1", places);
        break;
      }
      case 1:  // the modem deletes what may be deleted, sometimes without success
        for (auto entry = modem.begin(); entry != modem.end();) {
          const bool deleted = inbox_->IsHeld("1", {entry->first, entry->second}) &&
                               inbox_->MayDelete("1", entry->first) && random() % 3 != 0;
          entry = deleted ? modem.erase(entry) : std::next(entry);
        }
        break;
      case 2:
      case 3:
        if (const Incoming* const message = inbox_->Offered("1")) {
          accepted.push_back(message->text);
          EXPECT_TRUE(inbox_->Accept("1", message->id, now_));
          disk_.Sync();  // a program that is killed before this is offered the message again
        }
        break;
      case 4: disk_.Sync(); break;
      default: Restart(); break;
    }
  }
  EXPECT_EQ(accepted.size(), kMessages);
  std::ranges::sort(accepted);
  EXPECT_EQ(std::adjacent_find(accepted.begin(), accepted.end()), accepted.end());
}

}  // namespace
}  // namespace messages
