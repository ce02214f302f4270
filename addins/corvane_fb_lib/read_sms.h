// SPDX-License-Identifier: MIT
// READ_SMS: takes incoming SMS messages out of a GSM modem, one at a time.
#pragma once

#include "addins/corvane_fb_lib/base_fb.h"
#include "addins/corvane_fb_lib/lua_glue.h"

class ReadSMSFB : public BaseFB<ReadSMSFB> {
 public:
  using BaseFB::BaseFB;
  static const FBMetaEntry* GetMetaTable();

  /// Says once in the log that the block cannot do its work yet.
  void Execute() override;

 private:
  bool said_ = false;
};

DECLARE_FUNCTION_BLOCK(ReadSMSFB)
