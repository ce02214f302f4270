// SPDX-License-Identifier: MIT
#include "tests/addins/corvane_sms/sms_block_test.h"

namespace {

std::string the_folder;

}  // namespace

/// In this program instead of the runtime's: where the blocks keep their messages.
extern "C" const char* CorvaneStateFolder() {
  return the_folder.c_str();
}

void SmsBlockTest::UseFolder(const std::string& folder) {
  the_folder = folder;
}

SmsBlockTest::SmsBlockTest() {
  UseFolder(folder_.path());
  test_support::TakeLog();
}

SmsBlockTest::~SmsBlockTest() {
  CloseHost();
  DisposeAddin();
}

bool SmsBlockTest::CallUntil(const std::string& condition) {
  return test_support::WaitFor([&] {
    Run("fb()");
    return Eval(condition) == "true";
  });
}
