// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace hoist {

// A system call as the kernel saw it enter.
struct TracedCall {
  std::uint64_t number;
  std::array<std::uint64_t, 6> arguments;
};

namespace tracing {

// Marks the beginning and the end of what is counted: a call that nothing else makes.
inline constexpr long kMark = SYS_getpgrp;

[[noreturn]] inline void runTraced(const std::function<std::function<void()>()>& prepare) {
  int status = 1;
  if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0) {
    try {
      ::raise(SIGSTOP);
      auto code = prepare();
      ::syscall(kMark);
      code();
      ::syscall(kMark);
      status = 0;
    } catch (...) {
    }
  }
  ::_exit(status);
}

}  // namespace tracing

// The system calls that the code makes, in their order, as the kernel's tracer sees them. Runs in a
// child process: first what prepares and answers the code, uncounted, then the code. Nothing when
// this process may trace none, or when either of the two throws.
inline std::optional<std::vector<TracedCall>> systemCallsOf(
    const std::function<std::function<void()>()>& prepare) {
  pid_t child = ::fork();
  if (child == 0) tracing::runTraced(prepare);
  std::vector<TracedCall> calls;
  int marks = 0, status = 0;
  bool enters = true;
  auto next = [&](__ptrace_request request) {
    ::ptrace(request, child, nullptr, nullptr);
    return ::waitpid(child, &status, 0) == child && WIFSTOPPED(status);
  };
  if (::waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return std::nullopt;
  constexpr long kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
  ::ptrace(PTRACE_SETOPTIONS, child, nullptr, kOptions);
  while (next(PTRACE_SYSCALL)) {
    if (WSTOPSIG(status) != (SIGTRAP | 0x80)) continue;
    if (enters) {
      __ptrace_syscall_info info{};
      ::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
      if (info.entry.nr == static_cast<std::uint64_t>(tracing::kMark)) {
        ++marks;
      } else if (marks == 1) {
        TracedCall call{info.entry.nr, {}};
        for (std::size_t i = 0; i < call.arguments.size(); ++i)
          call.arguments[i] = info.entry.args[i];
        calls.push_back(call);
      }
    }
    enters = !enters;
  }
  if (marks != 2 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
  return calls;
}

inline std::size_t countOf(const std::vector<TracedCall>& calls, long number) {
  std::size_t count = 0;
  for (const auto& call : calls) count += call.number == static_cast<std::uint64_t>(number);
  return count;
}

}  // namespace hoist
