// SPDX-License-Identifier: MIT
// The block types of this add-in. Registration, the tests and the checks of the pages read this
// table: a new block is a new row at its end.
#pragma once

#include "addins/corvane_mail/mail_outbox_fb.h"
#include "block/block_types.h"

namespace corvane_mail {

/// In the order in which hosts list them.
inline constexpr FBTypeEntry kBlockTypes[] = {
    BLOCK_TYPE(MailOutboxFB),  // MAIL_OUTBOX
};

}  // namespace corvane_mail
