// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/corvane_sms.h"

#include "addins/corvane_sms/block_types.h"
#include "addins/corvane_sms/sms_service.h"

int InitAddin() {
  RegisterBlockTypes(corvane_sms::kBlockTypes);
  return 0;
}

void DisposeAddin() {
  corvane_sms::SmsService::End();
}
