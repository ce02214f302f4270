// SPDX-License-Identifier: MIT
// SEND_EMAIL: sends an e-mail, optionally with one file, through an SMTP server.
// Each block has a worker thread, which lives as long as the block and runs the SMTP dialogues one
// after the other. Execute runs on the thread of the Lua state. One mutex guards both queues; the
// worker holds it for a whole dialogue. Compatibility: a call during that time waits for it to end.
#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>

#include "addins/corvane_fb_lib/csmtp_v1_8a/csmtp.h"
#include "block/base_fb.h"
#include "block/lua_glue.h"
#include "share/tthread.h"

class SendEmailFB : public BaseFB<SendEmailFB> {
 public:
  /// Starts the worker. Throws std::system_error when no thread can be created.
  SendEmailFB(lua_State* L, const std::string& type_name);
  /// Waits until a dialogue in progress has ended, but not for the worker's pause. What is still
  /// queued is dropped, and logged. Meanwhile no other block begins a dialogue, so blocks that are
  /// destroyed one after the other take no longer than the longest of their dialogues.
  ~SendEmailFB() override;
  static const FBMetaEntry* GetMetaTable();
  /// `ReplyToMail`, the address for replies, is read although it is not declared.
  static bool IsKnownUndeclared(std::string_view name) { return name == "ReplyToMail"; }

  /// Publishes one finished job, as `Sent` and `Code`, and queues a new one on a rising edge of
  /// `Send`.
  void Execute() override;

 private:
  /// The worker's body.
  static void ThreadFunc(void* block);
  /// Waits for the time between two jobs, or until the block is being destroyed.
  void Pause();
  /// Sends the oldest job, if there is one.
  void SendNext();

  void PublishResult();
  /// Throws ECSmtp when the message cannot be built.
  boost::shared_ptr<CSmtp> BuildJob();
  void AddRecipients(CSmtp& job);
  /// Logs the error's text, and what `describe` returns about the failure.
  template <class Describe>
  static void LogFailure(const ECSmtp& error, const Describe& describe);
  void LogDropped() const;

  std::string name_;      // for the log
  bool lastSend = false;  // `Send` at the last call
  tthread::mutex queueMutex;
  std::deque<boost::shared_ptr<CSmtp>> jobQueue;
  std::deque<int> resultQueue;
  std::atomic<bool> stopRequested{false};
  std::mutex pauseMutex;  // only for `stopped`: the worker holds queueMutex for a whole dialogue
  std::condition_variable stopped;
  tthread::thread worker;  // last: it runs as soon as it is constructed
};

DECLARE_FUNCTION_BLOCK(SendEmailFB)
