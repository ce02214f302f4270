// SPDX-License-Identifier: MIT
#include "tests/addins/corvane_mail/mail_block_test.h"

namespace {

std::string the_folder;

}  // namespace

/// In this program instead of the runtime's: where the block keeps its mails.
extern "C" const char* CorvaneStateFolder() {
  return the_folder.c_str();
}

MailBlockTest::MailBlockTest() {
  the_folder = folder_.path();
  test_support::TakeLog();
}

MailBlockTest::~MailBlockTest() {
  CloseHost();
  DisposeAddin();
}

bool MailBlockTest::CallUntil(const std::string& condition) {
  return test_support::WaitFor([&] {
    Run("fb()");
    return Eval(condition) == "true";
  });
}
