// SPDX-License-Identifier: MIT
// The add-in as its host sees it: the types that it registers, and their metadata.
#include "addins/corvane_mail/corvane_mail.h"

#include "addins/corvane_mail/block_types.h"
#include "tests/addins/corvane_mail/mail_block_test.h"
#include "tests/support/every_type.h"

namespace {

class MailAddin : public MailBlockTest {};

/// What programs rely on.
constexpr test_support::TypeRow kTypes[] = {
    {"MAIL_OUTBOX",
     "Execute:BOOL Server:STRING Port:DINT Security:STRING User:STRING Password:STRING "
     "Token:STRING CaFile:STRING Insecure:BOOL From:STRING To:STRING Cc:STRING Bcc:STRING "
     "ReplyTo:STRING Subject:STRING Text:STRING Html:STRING Attachments:STRING Urgent:BOOL "
     "Key:STRING ValidFor:LREAL Timeout:LREAL Busy:BOOL Done:BOOL Error:BOOL ErrorId:DINT "
     "ErrorText:STRING Stored:BOOL Refused:STRING Waiting:DINT"},
};

TEST_EVERY_TYPE(MailAddin, corvane_mail::kBlockTypes, kTypes);

}  // namespace
