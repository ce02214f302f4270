// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/csmtp_v1_8a/ecsmtp.h"

#include <gtest/gtest.h>

#include <map>
#include <type_traits>

namespace {

// Control programs compare these texts, so they must stay as they are; there are no others.
const std::map<int, std::string> kTexts = {
    {0, ""},
    {100, "Unable to initialise winsock2"},
    {101, "Wrong version of the winsock2"},
    {102, "Function send() failed"},
    {103, "Function recv() failed"},
    {104, "Function connect failed"},
    {105, "Unable to determine remote server"},
    {106, "Invalid winsock2 socket"},
    {107, "Function hostname() failed"},
    {108, "Function ioctlsocket() failed"},
    {110, "Improper IPv4 address"},
    {200, "Undefined message header"},
    {201, "Undefined mail sender"},
    {202, "Undefined message subject"},
    {203, "Undefined at least one reciepent"},
    {204, "Undefined user login"},
    {205, "Undefined user password"},
    {206, "Undefined recipent mail"},
    {300, "Server returned error after sending MAIL FROM"},
    {301, "Server returned error after sending EHLO"},
    {302, "Server returned error after sending AUTH LOGIN"},
    {303, "Server returned error after sending DATA"},
    {304, "Server returned error after sending QUIT"},
    {305, "Server returned error after sending RCPT TO"},
    {306, "Error in message body"},
    {400, "Server has closed the connection"},
    {401, "Server is not ready"},
    {402, "Server not responding"},
    {404, "File not exist"},
    {405, "Message is too big"},
    {406, "Bad login or password"},
    {407, "Undefined xyz SMTP response"},
    {408, "Lack of memory"},
    {409, "time() error"},
    {410, "RecvBuf is empty"},
    {411, "SendBuf is empty"},
    {412, "Specified line number is out of message size"},
};

TEST(SmtpError, EveryCodeHasATextAndAllOthersAreUndefined) {
  for (int code = -2; code <= 1000; ++code) {
    const auto known = kTexts.find(code);
    EXPECT_EQ(ECSmtp(code).GetErrorText(),
              known == kTexts.end() ? "Undefined error id" : known->second)
        << code;
    EXPECT_EQ(ECSmtp(code).GetErrorNum(), code);
  }
}

TEST(SmtpError, AFailedWaitAndAConnectionTimeOutHaveNoText) {
  EXPECT_EQ(ECSmtp(SMTP_ERR_SELECT).GetErrorText(), "Undefined error id");
  EXPECT_EQ(ECSmtp(SMTP_ERR_CONNECT_TIMEOUT).GetErrorText(), "Undefined error id");
  EXPECT_EQ(SMTP_ERR_SELECT, 109);
  EXPECT_EQ(SMTP_ERR_CONNECT_TIMEOUT, 403);
}

TEST(SmtpError, IsTheCodeAndNothingElse) {
  static_assert(sizeof(ECSmtp) == sizeof(std::int32_t));
  static_assert(!std::is_polymorphic_v<ECSmtp>);
}

}  // namespace
