// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// One way to start a child for everything: clone(CLONE_VM | CLONE_VFORK | CLONE_PIDFD). posix_spawn
// would do for plain children, but it can neither execute a descriptor nor set three user IDs of
// which two differ from the first, and one way is simpler than two. As with vfork, the child
// borrows the parent's memory and the parent's thread sleeps until the child has executed or ended,
// so a start costs the same however large the parent is. The child runs on a stack of its own,
// touches only what `Start` holds, and calls the kernel directly: the C library's set*id functions
// would change every thread of the parent, and a sanitizer would note the child's descriptors and
// signal handlers as the parent's.

#include "platform/ChildTask.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <system_error>

#include "platform/DescriptorLimit.h"
#include "platform/SystemCall.h"

// The C library's other name of clone(3). ThreadSanitizer steps in front of the first one and takes
// the child for a fork, with threads and memory of its own.
extern "C" int __clone(int (*code)(void*), void* stack, int flags, void* argument, ...);

namespace hoist {
namespace {

constexpr std::size_t kChildStackSize = 64 * 1024;
constexpr uid_t kUnchanged = static_cast<uid_t>(-1);

// Everything that the child needs, made before it exists.
struct Start {
  const char* path;
  int executable;
  char* const* arguments;
  char* const* environment;
  std::array<int, 3> standard;
  uid_t realUser;
  uid_t effectiveUser;
  bool changesUser;
  // The limit of descriptors that the parent had before it raised its own.
  const rlimit* descriptorLimit;
  // What the child reports when it fails; it shares the memory.
  const char* failedCall;
  int failure;
};

#if defined(__clang__)
#define HOIST_PLAIN_CODE __attribute__((no_sanitize("address", "undefined", "thread")))
#else
#define HOIST_PLAIN_CODE
#endif

// Gives the child its three standard descriptors, whatever numbers they have now.
HOIST_PLAIN_CODE bool placeStandardDescriptors(Start& start) {
  start.failedCall = "fcntl(F_DUPFD)";
  for (int& fd : start.standard) {
    // Out of the way of the three numbers that are about to be taken.
    if (fd < 0 || fd >= 3) continue;
    fd = static_cast<int>(::syscall(SYS_fcntl, fd, F_DUPFD, 3));
    if (fd < 0) return false;
  }
  start.failedCall = "dup3";
  for (int number = 0; number < 3; ++number) {
    if (start.standard[number] >= 0 && ::syscall(SYS_dup3, start.standard[number], number, 0) < 0)
      return false;
  }
  return true;
}

HOIST_PLAIN_CODE void resetSignals() {
  // The C library keeps two signals for itself out of any mask; the kernel does not. All zero is
  // SIG_DFL without flags, in the kernel's own structure of four words.
  const std::array<std::uint64_t, 4> byDefault = {};
  std::uint64_t none = 0;
  for (int signal = 1; signal < _NSIG; ++signal)
    ::syscall(SYS_rt_sigaction, signal, byDefault.data(), nullptr, sizeof none);
  ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &none, nullptr, sizeof none);
}

HOIST_PLAIN_CODE bool prepareChild(Start& start) {
  if (!placeStandardDescriptors(start)) return false;
  start.failedCall = "close_range";
  // Marked rather than closed: the descriptor that is executed must last until then.
  if (::syscall(SYS_close_range, 3U, ~0U, CLOSE_RANGE_CLOEXEC) < 0) return false;
  start.failedCall = "chdir";
  if (::syscall(SYS_chdir, "/") < 0) return false;
  ::syscall(SYS_umask, S_IWGRP | S_IWOTH);
  start.failedCall = "setrlimit";
  if (start.descriptorLimit && ::setrlimit(RLIMIT_NOFILE, start.descriptorLimit) < 0) return false;
  start.failedCall = "setresuid";
  if (start.changesUser &&
      ::syscall(SYS_setresuid, start.realUser, start.effectiveUser, start.effectiveUser) < 0) {
    return false;
  }
  resetSignals();
  return true;
}

HOIST_PLAIN_CODE int runChild(void* argument) {
  Start& start = *static_cast<Start*>(argument);
  if (prepareChild(start)) {
    start.failedCall = "execve";
    if (start.executable >= 0) {
      ::syscall(SYS_execveat, start.executable, "", start.arguments, start.environment,
                AT_EMPTY_PATH);
    } else {
      ::syscall(SYS_execve, start.path, start.arguments, start.environment);
    }
  }
  start.failure = errno;
  ::_exit(127);
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

// The child's stack; freed when the parent goes on.
class ChildStack {
 public:
  ChildStack() {
    memory_ = ::mmap(nullptr, kChildStackSize, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory_ == MAP_FAILED) throwSystemCallError("mmap");
  }
  ~ChildStack() { ::munmap(memory_, kChildStackSize); }
  ChildStack(const ChildStack&) = delete;
  ChildStack& operator=(const ChildStack&) = delete;
  void* top() const { return static_cast<char*>(memory_) + kChildStackSize; }

 private:
  void* memory_;
};

// Blocks every signal of this thread: a handler of the parent must not run in the child.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    std::uint64_t all = ~std::uint64_t{0};
    ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &all, &previous_, sizeof all);
  }
  ~SignalsBlocked() {
    ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &previous_, nullptr, sizeof previous_);
  }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  std::uint64_t previous_ = 0;
};

// A process that was started to ignore the end of its children is never told how they ended, and
// whoever asks is told that there was none.
void heedChildren() {
  struct sigaction present = {};
  bool ignores = ::sigaction(SIGCHLD, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
  if (ignores) ::signal(SIGCHLD, SIG_DFL);
}

std::pair<pid_t, FileDescriptor> start(Start& start) {
  heedChildren();
  ChildStack stack;
  int pidfd = -1;
  pid_t pid;
  {
    SignalsBlocked blocked;
    pid = ::__clone(runChild, stack.top(), CLONE_VM | CLONE_VFORK | CLONE_PIDFD | SIGCHLD, &start,
                    &pidfd);
  }
  if (pid < 0) throwSystemCallError("clone");
  FileDescriptor owned(pidfd);
  if (start.failure != 0) {
    retryInterrupted([&] { return ::waitpid(pid, nullptr, 0); });
    throw SystemCallError(start.failure, start.failedCall, start.path);
  }
  return {pid, std::move(owned)};
}

}  // namespace

Ref<ChildTask> ChildTask::launch(const ChildTaskOptions& options) {
  std::vector<std::string> arguments{options.launchPath};
  arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
  std::vector<std::string> environment;
  if (options.environment) {
    for (const auto& [name, value] : *options.environment)
      environment.emplace_back(name).append("=").append(value);
  }
  auto argumentPointers = pointers(arguments);
  auto environmentPointers = pointers(environment);
  const auto& limit = platform::originalDescriptorLimit();
  bool changesUser = options.setUserIDOwner || options.realUser;
  Start description{
      .path = options.launchPath.c_str(),
      .executable = options.executable,
      .arguments = argumentPointers.data(),
      .environment = options.environment ? environmentPointers.data() : environ,
      .standard = {options.standardInput, options.standardOutput, options.standardError},
      .realUser = options.realUser.value_or(0),
      .effectiveUser = options.realUser ? 0 : options.setUserIDOwner.value_or(kUnchanged),
      .changesUser = changesUser,
      .descriptorLimit = limit ? &*limit : nullptr,
      .failedCall = "",
      .failure = 0};
  auto [pid, pidfd] = start(description);
  return Ref<ChildTask>(new ChildTask(pid, std::move(pidfd)));
}

bool ChildTask::collect(int options) {
  {
    MutexLock lock(mutex_);
    if (exited_) return true;
  }
  // Waits outside the lock; several threads may, and all but one then find the child collected.
  siginfo_t info = {};
  int result = retryInterrupted(
      [&] { return ::waitid(P_PIDFD, static_cast<id_t>(pidfd_.get()), &info, WEXITED | options); });
  MutexLock lock(mutex_);
  if (exited_) return true;
  if (result < 0) {
    if (errno != ECHILD) throwSystemCallError("waitid");
    // Another thread has collected it and is about to say so.
    return false;
  }
  if (info.si_pid == 0) return false;
  exited_ = true;
  status_ = info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
  return true;
}

void ChildTask::waitUntilExit() {
  // WNOWAIT first, so that every waiting thread sees the end; one of them collects it then.
  siginfo_t info = {};
  retryInterrupted(
      [&] { return ::waitid(P_PIDFD, static_cast<id_t>(pidfd_.get()), &info, WEXITED | WNOWAIT); });
  while (!collect(WNOHANG)) ::sched_yield();
}

bool ChildTask::hasExited() {
  return collect(WNOHANG);
}

int ChildTask::terminationStatus() const {
  MutexLock lock(mutex_);
  return status_;
}

void ChildTask::kill() {
  ::syscall(SYS_pidfd_send_signal, pidfd_.get(), SIGKILL, nullptr, 0);
}

}  // namespace hoist
