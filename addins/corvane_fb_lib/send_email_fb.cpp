// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/send_email_fb.h"

DEFINE_FUNCTION_BLOCK(SendEmailFB, "SEND_EMAIL")

const FBMetaEntry* SendEmailFB::GetMetaTable() {
  static const FBMetaEntry _entries[] = {
      {"Port", "DINT"},         {"Send", "BOOL"},         {"Server", "STRING"},
      {"Login", "STRING"},      {"Password", "STRING"},   {"Sender", "STRING"},
      {"SenderName", "STRING"}, {"SenderMail", "STRING"}, {"Subject", "STRING"},
      {"Recipient", "STRING"},  {"SecurityType", "DINT"}, {"Message", "STRING"},
      {"Attachment", "STRING"}, {"Sent", "BOOL"},         {"Code", "DINT"},
      {"ErrStr", "STRING"},     {nullptr, nullptr}};
  return _entries;
}

void SendEmailFB::Execute() {
  if (said_) return;
  said_ = true;
  logMsgLn("SEND_EMAIL does nothing in this version: only its variables are there");
}
