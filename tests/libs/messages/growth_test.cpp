// SPDX-License-Identifier: MIT
// No call moves everything that waits: a container that does so when it grows asks for one piece of
// memory for all of it. This program notes the largest piece that a thread asks for.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <string>

#include "libs/messages/outbox.h"
#include "libs/messages/sent_keys.h"
#include "libs/messages/store.h"

namespace {

thread_local std::size_t the_largest_piece = 0;

constexpr int kMessages = 20'000;
constexpr std::size_t kSmall = 65'536;  // bytes

}  // namespace

void* operator new(std::size_t size) {
  the_largest_piece = std::max(the_largest_piece, size);
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}

namespace {

using namespace std::chrono_literals;
using namespace messages;

TEST(Growth, OfAnOutboxTakesNoCallLong) {
  std::int64_t id = 0;
  Outbox outbox(
      "sms", {[&] { return ++id; }, [](const std::vector<Change>&) { return std::uint64_t{1}; }});
  const Now now = Now::Get();
  outbox.Load({}, {}, {}, std::nullopt, now);
  outbox.Tick(now);
  the_largest_piece = 0;
  for (int i = 0; i < kMessages; ++i) {
    const NewJob job{.route = "1",
                     .key = "alarm " + std::to_string(i),
                     .urgent = false,
                     .valid_for = 24h,
                     .messages = {{"+15550101234", "text"}}};
    (void)outbox.Add(job, now);
    outbox.Tick(now);
  }
  EXPECT_EQ(outbox.Waiting("1"), kMessages);
  EXPECT_LT(the_largest_piece, kSmall);
}

TEST(Growth, OfTheKeysThatWereSentTakesNoCallLong) {
  SentKeys keys;
  the_largest_piece = 0;
  for (int i = 0; i < kMessages; ++i) keys.Add("alarm " + std::to_string(i), SteadyTime(i * 1ms));
  EXPECT_LT(the_largest_piece, kSmall);
}

TEST(Growth, OfWhatWaitsForADiskTakesNoCallLong) {
  Store store("");  // without a folder nothing can be written
  the_largest_piece = 0;
  for (int i = 0; i < kMessages; ++i) (void)store.Write({SetLimit{i}});
  EXPECT_LT(the_largest_piece, kSmall);
}

}  // namespace
