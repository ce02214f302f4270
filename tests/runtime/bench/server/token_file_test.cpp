// SPDX-License-Identifier: MIT
#include "runtime/bench/server/token_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "runtime/bench/server/web_address.h"
#include "tests/support/temporary_folder.h"

namespace {

using corvane::bench::BenchError;
using corvane::bench::kLongestToken;
using corvane::bench::kShortestToken;
using corvane::bench::ReadTokenFile;

class TokenFileTest : public testing::Test {
 protected:
  /// What is wrong with a file of this content; empty: nothing.
  [[nodiscard]] std::string ProblemOf(const std::string& content, mode_t mode = 0600) const {
    const std::string file = folder_.Write("token", content);
    chmod(file.c_str(), mode);
    return ProblemOfFile(file);
  }
  [[nodiscard]] static std::string ProblemOfFile(const std::string& file) {
    try {
      (void)ReadTokenFile(file);
      return {};
    } catch (const BenchError& error) {
      return error.what();
    }
  }

  const test_support::TemporaryFolder folder_;
};

TEST_F(TokenFileTest, HasOneLineWithTheToken) {
  const std::string token(kShortestToken, 'a');
  const std::string file = folder_.Write("token", token + "\n");
  chmod(file.c_str(), 0600);
  EXPECT_EQ(ReadTokenFile(file), token);
  EXPECT_EQ(ProblemOf(std::string(kLongestToken, '~')), "");
  EXPECT_EQ(ProblemOf("AZaz09._~+/=-AZaz09"), "");
}

TEST_F(TokenFileTest, WithAnythingElseIsRefusedWithoutQuotingIt) {
  for (const std::string& content :
       {std::string(), std::string("\n"), std::string(kShortestToken - 1, 'a'),
        std::string(kLongestToken + 1, 'a'), std::string("aaaaaaaaaaaaaaaa\nbbbbbbbbbbbbbbbb\n"),
        std::string("aaaaaaaa aaaaaaaa"), std::string("aaaaaaaaaaaaaaaa\r\n"),
        std::string("aaaaaaaaaaaaaaa\0a", 17), std::string("äaaaaaaaaaaaaaaaa")}) {
    const std::string problem = ProblemOf(content);
    EXPECT_NE(problem.find("must have one line of 16 to 256"), std::string::npos) << problem;
    EXPECT_EQ(problem.find("aaaaaaaa"), std::string::npos) << problem;
  }
}

TEST_F(TokenFileTest, ThatOthersCanReadOrChangeIsRefused) {
  const std::string token(kShortestToken, 'a');
  for (const mode_t mode : {0604U, 0602U, 0620U, 0666U}) {
    EXPECT_NE(ProblemOf(token, mode).find("can be read or changed by others"), std::string::npos)
        << std::oct << mode;
  }
}

TEST_F(TokenFileTest, MustBeAFileThatIsThere) {
  EXPECT_NE(ProblemOfFile(folder_.path() / "none").find("No such file"), std::string::npos);
  EXPECT_NE(ProblemOfFile(folder_.path()).find("is not a file"), std::string::npos);
  const std::string pipe = folder_.path() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_NE(ProblemOfFile(pipe).find("is not a file"), std::string::npos);
}

}  // namespace
