// SPDX-License-Identifier: MIT
// The block types of this add-in. Registration, the tests and the checks of the pages read this
// table: a new block is a new row at its end.
#pragma once

#include "addins/corvane_fb_lib/read_sms.h"
#include "addins/corvane_fb_lib/send_email_fb.h"
#include "addins/corvane_fb_lib/shell_fb.h"
#include "addins/corvane_fb_lib/shell_res_fb.h"
#include "addins/corvane_fb_lib/st_sms.h"
#include "block/block_types.h"

/// In the order in which hosts list them.
inline constexpr FBTypeEntry kBlockTypes[] = {
    BLOCK_TYPE(SendSMSFB),    // SEND_SMS
    BLOCK_TYPE(ReadSMSFB),    // READ_SMS
    BLOCK_TYPE(SendEmailFB),  // SEND_EMAIL
    BLOCK_TYPE(ShellFB),      // SysProcessCreate
    BLOCK_TYPE(ShellResFB),   // SysProcessCreateWithResult
};
