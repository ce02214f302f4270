// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/st_sms.h"

DEFINE_FUNCTION_BLOCK(SendSMSFB, "SEND_SMS")

const FBMetaEntry* SendSMSFB::GetMetaTable() {
  static const FBMetaEntry _entries[] = {
      {"Port", "DINT"},      {"Send", "BOOL"},  {"Receiver", "STRING"},
      {"Message", "STRING"}, {"Error", "DINT"}, {"State", "DINT"},
      {"Sent", "BOOL"},      {"Queue", "DINT"}, {nullptr, nullptr}};
  return _entries;
}

void SendSMSFB::Execute() {
  if (said_) return;
  said_ = true;
  logMsgLn("SEND_SMS does nothing in this version: only its variables are there");
}
