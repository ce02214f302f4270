// SPDX-License-Identifier: MIT
#include "runtime/bench/server/hub.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

namespace corvane::bench {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FakeClient : public Client {
 public:
  void Send(const std::shared_ptr<const Frame>& frame) override { frames_.push_back(*frame); }
  const std::string& who() const override { return who_; }
  bool is_local() const override { return false; }
  std::vector<Frame> Take() { return std::exchange(frames_, {}); }

 private:
  std::string who_ = "somebody";
  std::vector<Frame> frames_;
};

class FakeTopic : public Topic {
 public:
  void SetWatched(bool watched) override { is_watched = watched; }
  std::vector<Frame> Changes() override { return std::exchange(changes, {}); }
  std::vector<Frame> Complete() override { return complete; }
  bool is_watched = false;
  std::vector<Frame> changes;
  std::vector<Frame> complete{"all"};
};

class HubTest : public testing::Test {
 protected:
  Hub::Topics Topics() {
    auto topic = std::make_unique<FakeTopic>();
    topic_ = topic.get();
    Hub::Topics topics;
    topics["log"] = std::move(topic);
    return topics;
  }
  void Subscribe(Client& client) {
    hub_.Receive(client, R"({"type":"subscribe","topics":["log"]})");
  }

  FakeTopic* topic_ = nullptr;
  RequestDone done_;
  Hub hub_{Topics(), [] { return "hello"; },
           [this](const ClientRequest& /*request*/, RequestDone done) { done_ = std::move(done); }};
  FakeClient one_;
  FakeClient other_;
};

TEST_F(HubTest, ANewSubscriberGetsEverythingAndOthersTheChanges) {
  hub_.Join(one_);
  hub_.Join(other_);
  EXPECT_THAT(one_.Take(), ElementsAre("hello"));
  (void)other_.Take();
  Subscribe(one_);
  EXPECT_TRUE(topic_->is_watched);
  hub_.Tick();
  EXPECT_THAT(one_.Take(), ElementsAre("all"));
  Subscribe(other_);
  topic_->changes = {"a", "b"};
  hub_.Tick();
  EXPECT_THAT(one_.Take(), ElementsAre("a", "b"));
  EXPECT_THAT(other_.Take(), ElementsAre("all"));
}

TEST_F(HubTest, ASubscriberWaitsForATopicThatKnowsNothingYet) {
  hub_.Join(one_);
  (void)one_.Take();
  Subscribe(one_);
  topic_->complete.clear();
  topic_->changes = {"a"};
  hub_.Tick();
  EXPECT_THAT(one_.Take(), IsEmpty());
  topic_->complete = {"all"};
  hub_.Tick();
  EXPECT_THAT(one_.Take(), ElementsAre("all"));
}

TEST_F(HubTest, NobodyWatchesAfterTheLastHasLeft) {
  hub_.Join(one_);
  Subscribe(one_);
  hub_.Leave(one_);
  EXPECT_FALSE(topic_->is_watched);
}

TEST_F(HubTest, AnAnswerForAClientThatHasLeftIsDropped) {
  hub_.Join(one_);
  hub_.Receive(one_, R"({"type":"get","request":1,"id":1})");
  hub_.Leave(one_);
  (void)one_.Take();
  done_("late", "frame");
  EXPECT_THAT(one_.Take(), IsEmpty());
}

TEST_F(HubTest, AFrameOfAnAnswerComesBeforeTheResult) {
  hub_.Join(one_);
  (void)one_.Take();
  hub_.Receive(one_, R"({"type":"get","request":1,"id":1})");
  done_("", "frame");
  EXPECT_THAT(one_.Take(), ElementsAre("frame", R"({"type":"result","request":1,"ok":true})"));
}

}  // namespace
}  // namespace corvane::bench
