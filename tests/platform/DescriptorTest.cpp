// SPDX-License-Identifier: Apache-2.0
#include "platform/Descriptor.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "platform/SystemError.hpp"
#include "support/SystemFailure.hpp"

namespace tolva {
namespace {

int opened() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }

bool isOpen(int descriptor) { return ::fcntl(descriptor, F_GETFD) != -1; }

TEST(Descriptor, ClosesWhatItOwnsAndKeepsTheReasonOfAFailure) {
  int const number = opened();
  {
    Descriptor const owner(number);
    EXPECT_TRUE(owner);
    EXPECT_EQ(owner.get(), number);
    EXPECT_TRUE(isOpen(number));
    errno = ENOSPC;
  }
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(isOpen(number));
}

TEST(Descriptor, OwnsNothingAtFirstAndAfterAFailedOpen) {
  EXPECT_FALSE(Descriptor());
  EXPECT_FALSE(Descriptor(-1));
}

TEST(Descriptor, GivesItsOwnershipAwayWhole) {
  Descriptor first(opened());
  int const number = first.get();
  Descriptor second(std::move(first));
  EXPECT_FALSE(first);
  EXPECT_EQ(second.get(), number);

  Descriptor third(opened());
  int const replaced = third.get();
  third = std::move(second);
  EXPECT_FALSE(isOpen(replaced));
  EXPECT_EQ(third.get(), number);

  EXPECT_EQ(third.release(), number);
  EXPECT_FALSE(third);
  EXPECT_TRUE(isOpen(number));
  ::close(number);
}

TEST(SystemError, CarriesTheReasonAndTheFile) {
  EXPECT_EQ(systemFailureOf([] {
              errno = EACCES;
              throwSystemError("fork");
            }),
            "EACCES");
  EXPECT_EQ(systemFailureOf([] {
              errno = ENOENT;
              throwFileError("The file cannot be opened", "/nowhere/a.db");
            }),
            "ENOENT a.db");
}

}  // namespace
}  // namespace tolva
