// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/corvane_mail.h"

#include "addins/corvane_mail/block_types.h"
#include "addins/corvane_mail/mail_service.h"

int InitAddin() {
  RegisterBlockTypes(corvane_mail::kBlockTypes);
  corvane_mail::MailService::BeginIfNeeded();
  return 0;
}

void DisposeAddin() {
  corvane_mail::MailService::End();
}
