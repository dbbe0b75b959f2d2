// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/StandardDescriptors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace hoist::platform {
namespace {

bool isInheritedNullDevice(int fd) {
  struct stat status {};
  return ::fstat(fd, &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3) &&
         ::fcntl(fd, F_GETFD) == 0;
}

TEST(StandardDescriptors, ThatAreClosedBecomeTheNullDevice) {
  EXPECT_EXIT(
      {
        for (int number : {0, 1, 2}) ::close(number);
        openStandardDescriptors();
        bool all = true;
        for (int number : {0, 1, 2}) all = all && isInheritedNullDevice(number);
        ::_exit(all ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(StandardDescriptors, ThatAreOpenAreLeftAlone) {
  EXPECT_EXIT(
      {
        int ends[2];
        bool made = ::pipe2(ends, O_CLOEXEC) == 0 && ::dup2(ends[1], 1) == 1;
        ::close(0);
        openStandardDescriptors();
        struct stat status {};
        bool kept = ::fstat(1, &status) == 0 && S_ISFIFO(status.st_mode);
        ::_exit(made && kept && isInheritedNullDevice(0) ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace hoist::platform
