// SPDX-License-Identifier: MIT
#include "runtime/bench/sampling/secret_names.h"

#include <gtest/gtest.h>

namespace {

using corvane::bench::IsSecretName;

TEST(SecretNames, PasswordsTokensAndPinsInAnyCase) {
  for (const char* name :
       {"PIN",     "pin",         "Pin",           "sim_pin",       "simPin",
        "SIM_PIN", "simPIN",      "Password",      "smtp_password", "MailPassword",
        "Token",   "apiToken",    "client_secret", "passwort",      "pwd",
        "SIM_PUK", "credentials", "ApiKey",        "api_key",       "passphrase"}) {
    EXPECT_TRUE(IsSecretName(name)) << name;
  }
}

TEST(SecretNames, OtherNamesAreNot) {
  for (const char* name : {"", "spin", "pinion", "SPIN", "Pump", "pins", "Pass", "n"}) {
    EXPECT_FALSE(IsSecretName(name)) << name;
  }
}

}  // namespace
