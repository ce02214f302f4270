// SPDX-License-Identifier: MIT
// SEND_SMS: sends a text to one or more phone numbers through a GSM modem.
#pragma once

#include "addins/corvane_fb_lib/base_fb.h"
#include "addins/corvane_fb_lib/lua_glue.h"

class SendSMSFB : public BaseFB<SendSMSFB> {
 public:
  using BaseFB::BaseFB;
  static const FBMetaEntry* GetMetaTable();

  /// Says once in the log that the block cannot do its work yet.
  void Execute() override;

 private:
  bool said_ = false;
};

DECLARE_FUNCTION_BLOCK(SendSMSFB)
