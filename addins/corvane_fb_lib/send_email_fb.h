// SPDX-License-Identifier: MIT
// SEND_EMAIL: sends an e-mail, optionally with one file, through an SMTP server.
#pragma once

#include "addins/corvane_fb_lib/base_fb.h"
#include "addins/corvane_fb_lib/lua_glue.h"

class SendEmailFB : public BaseFB<SendEmailFB> {
 public:
  using BaseFB::BaseFB;
  static const FBMetaEntry* GetMetaTable();

  /// Says once in the log that the block cannot do its work yet.
  void Execute() override;

 private:
  bool said_ = false;
};

DECLARE_FUNCTION_BLOCK(SendEmailFB)
