// SPDX-License-Identifier: MIT
// READ_SMS: takes incoming SMS messages out of a GSM modem, one at a time.
// Threads: the one that runs the Lua state and the modem port driver's, kept apart by the runtime's
// scan lock. The block takes no lock: `state` hands each exchange over.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "addins/corvane_fb_lib/driver_client.h"
#include "addins/corvane_fb_lib/sms_delivered.h"
#include "block/base_fb.h"
#include "block/lua_glue.h"
#include "corvane/modem_port_driver.h"

class ReadSMSFB : public BaseFB<ReadSMSFB> {
 public:
  using BaseFB::BaseFB;
  static const FBMetaEntry* GetMetaTable();
  static const STValueMeaning* GetMeaningTable();

  /// Registers with the driver until that succeeds, starts a pass over the modem's messages while
  /// `Read` is TRUE, and delivers one message at most every second call.
  void Execute() override;

  /// 0 while the block wants nothing from the modem, otherwise the state.
  [[nodiscard]] int getPriority() const { return state < kSetPduMode ? 0 : state; }
  /// Writes the state's command to `buffer`. @return its length, 0 for none
  int GetRequestImpl(char* buffer, PortDriverRequestData* request,
                     PortDriverReplyFunction* onReply) const;
  /// Handles the answer. @return 1 while the pass goes on, otherwise 0
  int OnReplyImpl(char* reply, int length, int replyStatus);

  /// Files the messages of a list answer (3GPP TS 27.005 clause 3.4.2) and notes their indices for
  /// deletion. An entry without its comma or line feed ends the list; an entry that ends after its
  /// header is an empty message. The time is proportional to `length`. @return 0
  int ParsATRequest(char* reply, int length);
  /// Appends `length / 2` octets to `out`; characters that are not hexadecimal count as 0.
  static void PDU_h2b(const char* hex, unsigned int length, std::vector<unsigned char>& out);

 private:
  using Message = boost::shared_ptr<sms::SMSDelivered>;

  /// Values of `State`, which are also the priorities.
  enum State : std::int32_t {
    kUnregistered = 0,
    kIdle = 1,
    kSetPduMode = 2,
    kList = 33,
    kDelete = 34,  ///< the message at the front of deleteQueue
  };

  void Register();
  void Deliver();
  /// 0 for success, otherwise the value for `Error`. Files the messages of a list.
  int Classify(char* reply, int length, int replyStatus);
  /// Queues a whole message, joins a part to its message, drops a rejected one.
  void File(const Message& message);
  void NextDelete();

  std::deque<Message> readyQueue;             // finished messages, first in, first out
  std::map<unsigned char, Message> partsMap;  // unfinished ones, by their reference alone
  std::deque<unsigned char> deleteQueue;      // indices in listing order
  std::int32_t state = kUnregistered;
  DriverClient<ReadSMSFB> client{this};
};

DECLARE_FUNCTION_BLOCK(ReadSMSFB)
