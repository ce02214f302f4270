// SPDX-License-Identifier: MIT
// Several handles on one store: those of this program, and those of two libraries that have their
// own copies of all code, as add-ins do.
#include "libs/messages/store_shared.h"

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <memory>

#include "tests/libs/messages/store_tools.h"

namespace messages {
namespace {

using test_support::kPatience;
using test_support::WaitFor;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

Outgoing NewMail(Store& store, const std::string& receiver) {
  Outgoing row = NewMessage(store, receiver);
  row.channel = "mail";
  row.route = "mx.example:25";
  return row;
}

/// A store with one SMS and one mail.
void MakeMixedStoreIn(const std::filesystem::path& folder) {
  Store store(folder, "sms", Quick());
  Outgoing sent = NewMail(store, "sent@plant.example");
  sent.key = "heartbeat";
  sent.state = OutgoingState::kSent;
  sent.finished = TimeNow();
  Incoming received;
  received.id = store.NewId();
  store.Write(
      {NewMessage(store, "112"), NewMail(store, "a@plant.example"), sent, received, SetLimit{5}});
  ASSERT_TRUE(store.Flush(kPatience)) << store.problem();
}

TEST(StoreShared, GivesEachChannelItsOwnContent) {
  const test_support::TemporaryFolder folder;
  MakeMixedStoreIn(folder.path());
  Store sms(folder.path(), "sms", Quick());
  const Content of_sms = LoadedFrom(sms);
  EXPECT_THAT(Receivers(of_sms), ElementsAre("112"));
  EXPECT_THAT(of_sms.keys, IsEmpty());
  EXPECT_THAT(of_sms.recent, IsEmpty());
  EXPECT_THAT(of_sms.inbox, SizeIs(1));
  EXPECT_EQ(of_sms.limit_per_hour, 5);
  Store mail(folder.path(), "mail", Quick());  // joins when everything is loaded
  const Content of_mail = LoadedFrom(mail);
  EXPECT_THAT(Receivers(of_mail), ElementsAre("a@plant.example"));
  EXPECT_THAT(of_mail.keys, SizeIs(1));
  EXPECT_THAT(of_mail.recent, SizeIs(1));
  EXPECT_THAT(of_mail.inbox, IsEmpty());
  EXPECT_EQ(of_mail.limit_per_hour, 5);
  EXPECT_EQ(mail.problem(), "");
}

TEST(StoreShared, AChannelWithoutMessagesGetsEmptyContentAndTheLimit) {
  const test_support::TemporaryFolder folder;
  MakeMixedStoreIn(folder.path());
  Store sms(folder.path(), "sms", Quick());
  LoadedFrom(sms);
  Store other(folder.path(), "other", Quick());
  const Content content = LoadedFrom(other);
  EXPECT_THAT(content.waiting, IsEmpty());
  EXPECT_EQ(content.limit_per_hour, 5);
}

TEST(StoreShared, HasOneSequenceOfNumbersAndOneOrderOfChanges) {
  const test_support::TemporaryFolder folder;
  Store sms(folder.path(), "sms", Quick());
  Store mail(folder.path(), "mail", Quick());
  const std::int64_t first = sms.NewId();
  EXPECT_EQ(mail.NewId(), first + 1);
  const auto one = sms.Write({NewMessage(sms, "112")});
  EXPECT_EQ(mail.Write({NewMail(mail, "a@plant.example")}), one + 1);
  EXPECT_TRUE(sms.Flush(kPatience)) << sms.problem();
  EXPECT_TRUE(mail.IsOnDisk(one + 1));
}

TEST(StoreShared, LivesUntilItsLastHandleEnds) {
  const test_support::TemporaryFolder folder;
  {
    Store mail(folder.path(), "mail", Quick());
    { const Store sms(folder.path(), "sms", Quick()); }
    mail.Write({NewMail(mail, "a@plant.example")});
    ASSERT_TRUE(mail.Flush(kPatience)) << mail.problem();
  }
  Store again(folder.path(), "mail", Quick());
  EXPECT_THAT(Receivers(LoadedFrom(again)), ElementsAre("a@plant.example"));
}

TEST(StoreShared, AChannelThatComesBackGetsWhatWasWrittenMeanwhile) {
  const test_support::TemporaryFolder folder;
  const Store sms(folder.path(), "sms", Quick());
  std::int64_t id = 0;
  {
    Store mail(folder.path(), "mail", Quick());
    LoadedFrom(mail);
    const Outgoing row = NewMail(mail, "a@plant.example");
    id = row.id;
    mail.Write({row});
  }
  Store mail(folder.path(), "mail", Quick());
  const Content content = LoadedFrom(mail);
  ASSERT_THAT(Receivers(content), ElementsAre("a@plant.example"));
  EXPECT_EQ(content.waiting.front().id, id) << "a change of it must reach the same row";
}

TEST(StoreShared, ASecondHandleOfAChannelFindsTheStoreInUse) {
  const test_support::TemporaryFolder folder;
  Store first(folder.path(), "mail", Quick());
  LoadedFrom(first);
  Store second(folder.path(), "mail", Quick());
  EXPECT_THAT(ProblemOf(second), testing::HasSubstr("in use by process"));
  EXPECT_EQ(first.problem(), "");
}

TEST(StoreShared, SaysWhereItIsThroughOneHandle) {
  const test_support::TemporaryFolder folder;
  Store sms(folder.path(), "sms", Quick());
  Store mail(folder.path(), "mail", Quick());
  EXPECT_TRUE(WaitFor([&] { return mail.TakeLoaded(); }));
  EXPECT_FALSE(mail.TakeLoaded());
  EXPECT_FALSE(sms.TakeLoaded());
}

Request About(std::int64_t id, RequestKind kind, const std::string& channel) {
  Request request{.id = id, .kind = kind, .value = 7, .message = {}};
  request.message.channel = channel;
  if (!channel.empty()) request.message.id = 1;
  return request;
}

TEST(StoreShared, HandsRequestsToTheChannelOfTheirMessage) {
  StoreShared shared("", {});
  ASSERT_TRUE(shared.Join("sms"));
  shared.GiveRequest(About(1, RequestKind::kCancel, "mail"));
  shared.GiveRequest(About(2, RequestKind::kCancel, "sms"));
  EXPECT_THAT(shared.TakeRequests("sms"), ElementsAre(testing::Field(&Request::id, 2)));
  ASSERT_TRUE(shared.Join("mail"));
  EXPECT_THAT(shared.TakeRequests("mail"), ElementsAre(testing::Field(&Request::id, 1)));
}

TEST(StoreShared, HandsTheLimitToEachChannelAndAsksOneForTheAnswer) {
  StoreShared shared("", {});
  ASSERT_TRUE(shared.Join("sms"));
  ASSERT_TRUE(shared.Join("mail"));
  std::map<std::string, Content> nothing;
  shared.GiveContent(nothing, std::nullopt);
  shared.GiveRequest(About(1, RequestKind::kLimit, ""));
  const auto own = shared.TakeRequests("mail");
  EXPECT_THAT(own, ElementsAre(testing::Field(&Request::answered_elsewhere, false)));
  const auto other = shared.TakeRequests("sms");
  ASSERT_THAT(other, ElementsAre(testing::Field(&Request::answered_elsewhere, true)));
  EXPECT_EQ(other.front().value, 7);
  EXPECT_EQ(shared.TakeContent("sms")->limit_per_hour, 7) << "loaded before, taken after";
}

/// A library loaded in the way of an add-in: others see nothing of it.
class Library {
 public:
  explicit Library(const char* file) : handle_(dlopen(file, RTLD_NOW | RTLD_LOCAL)) {
    EXPECT_NE(handle_, nullptr) << dlerror();
  }
  void Open(const std::string& folder) {
    Function<void(const char*)>("luaopen_store")(folder.c_str());
  }
  void Close() { Function<void()>("luaopen_nothing")(); }
  std::int64_t Add() { return Function<std::int64_t()>("luaopen_message")(); }
  std::string Problem() { return Function<const char*()>("luaopen_problem")(); }

 private:
  template <class T>
  T* Function(const char* name) {
    return reinterpret_cast<T*>(dlsym(handle_, name));
  }
  void* handle_;
};

TEST(StoreShared, IsSharedByLibrariesWithTheirOwnCopiesOfTheCode) {
  const test_support::TemporaryFolder folder;
  Library one(STORE_ADDIN_SMS);
  Library other(STORE_ADDIN_MAIL);
  one.Open(folder.path().string());
  other.Open(folder.path().string());
  const std::int64_t number = one.Add();  // waits until it is on the disk
  EXPECT_GT(number, 0) << one.Problem();
  EXPECT_EQ(other.Add(), number + 1) << other.Problem();
  EXPECT_EQ(other.Problem(), "");
  one.Close();
  EXPECT_EQ(other.Add(), number + 2) << "the writer ends with the last handle only";
  other.Close();
  EXPECT_THAT(ContentOf(folder.path()).waiting, SizeIs(1)) << "the other channel has two";
}

}  // namespace
}  // namespace messages
