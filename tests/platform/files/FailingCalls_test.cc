// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What only some file systems answer: here the kernel is told to answer it to a child process.

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
#include <cstdint>
#include <filesystem>
#include <functional>

#include "platform/files/FileManager.h"
#include "support/TemporaryFolder.h"

namespace hoist::files {
namespace {

// A call that is to fail with an error, if one of its arguments is not zero.
struct FailingCall {
  unsigned number;
  unsigned argument;
  int error;
};

bool makeFail(const FailingCall& call) {
  auto argument = offsetof(seccomp_data, args) + call.argument * sizeof(std::uint64_t);
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call.number, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned>(argument)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(call.error)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  sock_fprog program{sizeof filter / sizeof *filter, filter};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// The error number that the code answers while the call fails; 0 for none.
int errorWhile(const FailingCall& call, const std::function<Ref<Error>()>& code) {
  pid_t child = ::fork();
  if (child == 0) {
    if (!makeFail(call)) ::_exit(255);
    auto error = code();
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

class FailingCalls : public testing::Test {
 protected:
  void SetUp() override {
    folder_.write("x", "x");
    folder_.write("there", "precious");
  }
  Ref<Error> copy() { return copyItem(folder_ / "x", folder_ / "y"); }
  TemporaryFolder folder_;
};

// A disk that turns out to be full only when the file is closed.
TEST_F(FailingCalls, AnErrorOfClosingIsAFailedCopyThatLeavesNoFile) {
  EXPECT_EQ(errorWhile({SYS_close, 0, EDQUOT}, [&] { return copy(); }), EDQUOT);
  EXPECT_FALSE(isThere(folder_ / "y"));
}

TEST_F(FailingCalls, AnInterruptedClosingIsNone) {
  EXPECT_EQ(errorWhile({SYS_close, 0, EINTR}, [&] { return copy(); }), 0);
  EXPECT_TRUE(isThere(folder_ / "y"));
}

TEST_F(FailingCalls, AMoveReplacesNothingWhereTheFileSystemCannotPromiseThat) {
  FailingCall exclusively{SYS_renameat2, 4, EINVAL};
  EXPECT_EQ(errorWhile(exclusively, [&] { return moveItem(folder_ / "x", folder_ / "there"); }),
            EEXIST);
  EXPECT_EQ(std::filesystem::file_size(folder_ / "there"), 8u);
  EXPECT_EQ(errorWhile(exclusively, [&] { return moveItem(folder_ / "x", folder_ / "y"); }), 0);
  EXPECT_TRUE(isThere(folder_ / "y"));
  EXPECT_FALSE(isThere(folder_ / "x"));
}

}  // namespace
}  // namespace hoist::files
