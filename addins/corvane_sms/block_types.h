// SPDX-License-Identifier: MIT
// The block types of this add-in. Registration, the tests and the checks of the pages read this
// table: a new block is a new row at its end.
#pragma once

#include "addins/corvane_sms/sms_inbox_fb.h"
#include "addins/corvane_sms/sms_outbox_fb.h"
#include "block/block_types.h"

namespace corvane_sms {

/// In the order in which hosts list them.
inline constexpr FBTypeEntry kBlockTypes[] = {
    BLOCK_TYPE(SmsOutboxFB),  // SMS_OUTBOX
    BLOCK_TYPE(SmsInboxFB),   // SMS_INBOX
};

}  // namespace corvane_sms
