// SPDX-License-Identifier: MIT
// Doubles of SEND_SMS and READ_SMS: the same variables, states and codes, with simulated modems,
// one exchange in each cycle. Threads: the one that runs the Lua state.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "block/base_fb.h"
#include "block/lua_glue.h"
#include "runtime/program_test/real_declaration.h"
#include "runtime/program_test/world.h"

class SendSmsDouble : public BaseFB<SendSmsDouble>,
                      public corvane::program_test::RealDeclaration<SendSmsDouble>,
                      private corvane::program_test::CycleClient {
 public:
  using BaseFB::BaseFB;
  void Execute() override;

 private:
  struct Message {
    std::string number, text;
  };
  /// Values of `State`.
  enum State : std::int32_t { kUnregistered, kIdle, kSetPduMode = 16, kAnnounce, kTransfer };

  void BeginCycle(double clock) override;
  void QueueMessages();
  void Succeeded(double clock);
  void Failed(int error);
  void Show(int error);

  State state_ = kUnregistered;
  double exchange_begins_ = 0;
  int retries_ = 0;
  bool last_send_ = false;
  std::deque<Message> queue_;
};

class ReadSmsDouble : public BaseFB<ReadSmsDouble>,
                      public corvane::program_test::RealDeclaration<ReadSmsDouble>,
                      private corvane::program_test::CycleClient {
 public:
  using BaseFB::BaseFB;
  void Execute() override;

 private:
  /// Values of `State`.
  enum State : std::int32_t { kUnregistered, kIdle, kSetPduMode, kList = 33, kDelete = 34 };

  void BeginCycle(double clock) override;
  void TakeAll();
  void Deliver();

  State state_ = kUnregistered;
  double last_try_ = 0;
  std::size_t to_delete_ = 0;
  std::deque<corvane::program_test::IncomingSms> ready_;
};

DECLARE_FUNCTION_BLOCK(SendSmsDouble)
DECLARE_FUNCTION_BLOCK(ReadSmsDouble)
