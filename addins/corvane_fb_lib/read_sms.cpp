// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/read_sms.h"

DEFINE_FUNCTION_BLOCK(ReadSMSFB, "READ_SMS")

const FBMetaEntry* ReadSMSFB::GetMetaTable() {
  static const FBMetaEntry _entries[] = {
      {"Port", "DINT"},     {"Read", "BOOL"},      {"Complete", "BOOL"},
      {"Number", "STRING"}, {"Message", "STRING"}, {"DateTime", "DATE_AND_TIME"},
      {"State", "DINT"},    {"Error", "DINT"},     {nullptr, nullptr}};
  return _entries;
}

void ReadSMSFB::Execute() {
  if (said_) return;
  said_ = true;
  logMsgLn("READ_SMS does nothing in this version: only its variables are there");
}
