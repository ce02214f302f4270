// SPDX-License-Identifier: MIT
// No call moves everything that waits: a container that does so when it grows asks for one piece of
// memory for all of it. Nor does a call clean up after another thread that has freed many small
// pieces of memory that calls had asked for. This program notes the largest piece that a thread
// asks for, and which thread asked for what is freed.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <deque>
#include <new>
#include <string>

#include "libs/messages/inbox.h"
#include "libs/messages/outbox.h"
#include "libs/messages/sent_keys.h"
#include "libs/messages/store.h"
#include "tests/support/temporary_folder.h"

namespace {

thread_local std::size_t the_largest_piece = 0;
thread_local const char the_thread = 0;     // its address tells threads apart
std::atomic<int> the_pieces_of_others = 0;  // freed by a thread that had not asked for them

thread_local std::size_t the_largest_freed = 0;

/// Before each piece of memory.
struct alignas(std::max_align_t) Header {
  const char* thread;
  std::size_t size;
};

constexpr int kMessages = 20'000;
constexpr std::size_t kSmall = 65'536;  // bytes

}  // namespace

void* operator new(std::size_t size) {
  the_largest_piece = std::max(the_largest_piece, size);
  if (void* const memory = std::malloc(sizeof(Header) + size)) {
    auto* const header = new (memory) Header{&the_thread, size};
    return header + 1;
  }
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  if (memory == nullptr) return;
  Header* const header = static_cast<Header*>(memory) - 1;
  if (header->thread != &the_thread) ++the_pieces_of_others;
  the_largest_freed = std::max(the_largest_freed, header->size);
  std::free(header);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  operator delete(memory);
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
  Store store("", "sms");  // without a folder nothing can be written
  the_largest_piece = 0;
  for (int i = 0; i < kMessages; ++i) (void)store.Write({SetLimit{i}});
  EXPECT_LT(the_largest_piece, kSmall);
}

TEST(Growth, OfFreeMemoryIsLeftToTheThreadThatUsedIt) {
  const test_support::TemporaryFolder folder;
  Store store(folder.path(), "sms");
  the_pieces_of_others = 0;
  for (int i = 0; i < kMessages; ++i) {
    Outgoing row;
    row.id = store.NewId();
    row.content = std::string(200, 'x');
    (void)store.Write({row});
  }
  ASSERT_TRUE(store.Flush(1min));
  EXPECT_LT(the_pieces_of_others, kMessages / 10);
}

TEST(Growth, WhatWasStoredIsTakenOverAndFreedPieceByPiece) {
  std::deque<Outgoing> rows(kMessages);
  std::deque<Incoming> messages(Inbox::kMostWaiting);
  for (int i = 0; i < kMessages; ++i) {
    Outgoing& row = rows.at(static_cast<std::size_t>(i));
    row.id = i + 1;
    row.channel = "sms";
    row.route = "1";
    row.content = std::string(200, 'x');
  }
  Outbox outbox("sms", {[] { return kFirstNewId; },
                        [](const std::vector<Change>&) { return std::uint64_t{1}; }});
  Inbox inbox({});
  const Now now = Now::Get();
  the_largest_piece = the_largest_freed = 0;
  outbox.Load(std::move(rows), {}, {}, std::nullopt, now);
  inbox.Load(std::move(messages), {}, {});
  while (!outbox.loaded() || !inbox.loaded()) {
    outbox.Tick(now);
    inbox.Tick(now);
  }
  // The list of a deque's pieces is a tenth of what it holds, or less.
  EXPECT_LT(the_largest_piece, sizeof(Outgoing) * kMessages / 10);
  EXPECT_LT(the_largest_freed, sizeof(Outgoing) * kMessages / 10);
}

}  // namespace
