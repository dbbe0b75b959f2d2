// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A file system that reports a full disk only when a file is closed: here the kernel is told to
// fail every close of a child process.

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "platform/files/FileManager.h"
#include "support/TemporaryFolder.h"

namespace hoist::files {
namespace {

bool failEveryClose(int error) {
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_close, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  sock_fprog program{sizeof filter / sizeof *filter, filter};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// The error of a copy while every close fails so; 0 for none.
int errorOfCopy(const std::string& from, const std::string& to, int errorOfClose) {
  pid_t child = ::fork();
  if (child == 0) {
    if (!failEveryClose(errorOfClose)) ::_exit(255);
    auto error = copyItem(from, to);
    ::_exit(error ? static_cast<int>(error->code()) : 0);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  return WEXITSTATUS(status);
}

bool isThere(const std::string& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0;
}

TEST(FailingClose, IsAFailedCopyThatLeavesNoFile) {
  TemporaryFolder folder;
  folder.write("x", "content");
  EXPECT_EQ(errorOfCopy(folder / "x", folder / "y", EDQUOT), EDQUOT);
  EXPECT_FALSE(isThere(folder / "y"));
}

TEST(FailingClose, IsNoneWhenItWasOnlyInterrupted) {
  TemporaryFolder folder;
  folder.write("x", "content");
  EXPECT_EQ(errorOfCopy(folder / "x", folder / "y", EINTR), 0);
  EXPECT_TRUE(isThere(folder / "y"));
}

}  // namespace
}  // namespace hoist::files
