// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/Confinement.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "codesign/SmallBundle.h"

namespace hoist::codesign {
namespace {

// Each of these needs a process of its own.

void endWith(bool success) {
  _exit(success ? 0 : 1);
}

TEST(ConfinementDeathTest, ARunThatTakesTooLongEndsWithALine) {
  EXPECT_EXIT(
      {
        endAfter(std::chrono::milliseconds(1));
        for (;;) pause();
      },
      testing::ExitedWithCode(1), "^codesign: took longer than its time limit\n$");
}

TEST(ConfinementDeathTest, KeepsTheRightToReadAndNoOther) {
  if (geteuid() != 0) GTEST_SKIP() << "root only";
  const TemporaryFolder folder;
  const auto secret = folder.write("secret", "x");
  const auto theirs = folder.write("theirs", "x");
  ASSERT_EQ(chmod(secret.c_str(), 0600), 0);
  ASSERT_EQ(chmod(theirs.c_str(), 0600), 0);
  ASSERT_EQ(chown(theirs.c_str(), 4711, 4711), 0);
  EXPECT_EXIT(
      {
        keepOnlyTheRightToRead();
        const bool reads = open(secret.c_str(), O_RDONLY | O_CLOEXEC) >= 0 &&
                           open(theirs.c_str(), O_RDONLY | O_CLOEXEC) >= 0;
        const bool changes = open(secret.c_str(), O_WRONLY | O_CLOEXEC) >= 0 ||
                             open(theirs.c_str(), O_WRONLY | O_CLOEXEC) >= 0 ||
                             chmod(secret.c_str(), 0644) == 0 || unlink(secret.c_str()) == 0 ||
                             setresuid(0, 0, 0) == 0 || setegid(0) == 0;
        endWith(reads && !changes && geteuid() == 65534 && getegid() == 65534);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace hoist::codesign
