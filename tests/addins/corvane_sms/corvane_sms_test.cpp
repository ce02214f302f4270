// SPDX-License-Identifier: MIT
// The add-in as its host sees it: the types that it registers, and their metadata.
#include "addins/corvane_sms/corvane_sms.h"

#include "addins/corvane_sms/block_types.h"
#include "tests/addins/corvane_sms/sms_block_test.h"
#include "tests/support/every_type.h"

namespace {

class SmsAddin : public SmsBlockTest {};

/// What programs rely on.
constexpr test_support::TypeRow kTypes[] = {
    {"SMS_OUTBOX",
     "Execute:BOOL Port:DINT Receiver:STRING Text:STRING Key:STRING ValidFor:LREAL Report:BOOL "
     "Flash:BOOL Urgent:BOOL Busy:BOOL Done:BOOL Error:BOOL ErrorId:DINT ErrorText:STRING "
     "Stored:BOOL Sent:DINT Failed:DINT Delivered:DINT Parts:DINT Waiting:DINT"},
    {"SMS_INBOX",
     "Enable:BOOL Port:DINT Accept:BOOL Valid:BOOL Error:BOOL ErrorId:DINT ErrorText:STRING "
     "Ready:BOOL From:STRING Text:STRING Time:DATE_AND_TIME Kind:DINT Id:DINT Waiting:DINT"},
};

TEST_EVERY_TYPE(SmsAddin, corvane_sms::kBlockTypes, kTypes);

}  // namespace
