// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/corvane_fb_lib.h"

#include "addins/corvane_fb_lib/read_sms.h"
#include "addins/corvane_fb_lib/send_email_fb.h"
#include "addins/corvane_fb_lib/shell_fb.h"
#include "addins/corvane_fb_lib/shell_res_fb.h"
#include "addins/corvane_fb_lib/st_sms.h"

int InitAddin() {
  // The order is the one in which hosts list the types.
  RegisterSTLibsSendSMSFB();
  RegisterSTLibsReadSMSFB();
  RegisterSTLibsSendEmailFB();
  RegisterSTLibsShellFB();
  RegisterSTLibsShellResFB();
  return 0;
}

void DisposeAddin() {}
