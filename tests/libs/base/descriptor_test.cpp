// SPDX-License-Identifier: MIT
#include "libs/base/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <utility>

namespace corvane {
namespace {

Descriptor OpenNull() {
  return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

bool IsOpen(int number) {
  return fcntl(number, F_GETFD) >= 0;
}

TEST(Descriptor, ClosesWhatItOwns) {
  int number = -1;
  {
    const Descriptor owner = OpenNull();
    number = owner.get();
    EXPECT_TRUE(IsOpen(number));
  }
  EXPECT_FALSE(IsOpen(number));
}

TEST(Descriptor, OfAFailedCallOwnsNothing) {
  const Descriptor owner(open("/nowhere/at/all", O_RDONLY | O_CLOEXEC));
  EXPECT_LT(owner.get(), 0);
}

TEST(Descriptor, ReleasedStaysOpen) {
  int number = -1;
  {
    Descriptor owner = OpenNull();
    number = owner.Release();
    EXPECT_LT(owner.get(), 0);
  }
  EXPECT_TRUE(IsOpen(number));
  close(number);
}

TEST(Descriptor, AssignmentClosesTheFormerDescriptor) {
  Descriptor owner = OpenNull();
  Descriptor other = OpenNull();
  const int former = owner.get();
  const int number = other.get();
  owner = std::move(other);
  EXPECT_FALSE(IsOpen(former));
  EXPECT_TRUE(IsOpen(number));
  EXPECT_EQ(owner.get(), number);
}

}  // namespace
}  // namespace corvane
