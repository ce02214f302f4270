// SPDX-License-Identifier: MIT
// SEND_SMS: sends a text to one or more phone numbers through a GSM modem. What a block has not
// sent when it is collected is lost. Threads: the one that runs the Lua state and the modem port
// driver's, kept apart by the runtime's scan lock. The block takes no lock: its state hands each
// exchange over.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "addins/corvane_fb_lib/driver_client.h"
#include "addins/corvane_fb_lib/sms_submit.h"
#include "block/base_fb.h"
#include "block/lua_glue.h"
#include "corvane/modem_port_driver.h"

class SendSMSFB : public BaseFB<SendSMSFB> {
 public:
  using BaseFB::BaseFB;
  static const FBMetaEntry* GetMetaTable();
  static const STValueMeaning* GetMeaningTable();

  /// Registers with the driver until that succeeds; on a rising edge of `Send` queues the message,
  /// once for each number in `Receiver`.
  void Execute() override;

  /// 0 while there is nothing to send, otherwise the state. In the idle state with a message in the
  /// queue, asking starts sending that message.
  int getPriority();
  /// Writes the state's command to `buffer`. A message without PDUs (an empty text) leaves the
  /// queue here instead. @return the length, 0 for none
  int GetRequestImpl(char* buffer, PortDriverRequestData* request,
                     PortDriverReplyFunction* onReply);
  /// Handles the answer. @return 1 while the message goes on, otherwise 0
  int OnReplyImpl(char* reply, int length, int replyStatus);

 private:
  /// Values of `State`, which are also the priorities.
  enum State : std::int32_t {
    kUnregistered = 0,
    kIdle = 1,
    kSetPduMode = 16,
    kAnnounce = 17,  ///< the front message's first PDU, with AT+CMGS
    kTransfer = 18,  ///< that PDU
  };

  void Register();
  /// Queues `Message` for every number in `Receiver`; what cannot be sent sets `Error`.
  void QueueMessages();
  /// Logs what is odd about the receiver, once for each text.
  void Advise(const std::string& receiver, const std::vector<std::string>& numbers);
  /// True while the front message has a PDU left.
  [[nodiscard]] bool HasPdu() const { return !queue_.empty() && !queue_.front()->pdus.empty(); }
  void Succeeded();
  void Failed();
  void PduSent();
  int WriteAnnouncement(char* buffer) const;
  int WritePdu(char* buffer) const;

  std::deque<boost::shared_ptr<sms::SMSSubmit>> queue_;  // the front message is being sent
  std::int32_t retries_ = 0;  // failed exchanges since a PDU was last confirmed or given up
  bool last_send_ = false;    // `Send` at the last call
  std::string advised_receiver_;
  std::int32_t state_ = kUnregistered;
  DriverClient<SendSMSFB> client_{this};
};

DECLARE_FUNCTION_BLOCK(SendSMSFB)
