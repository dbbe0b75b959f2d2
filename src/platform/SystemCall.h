// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace hoist {

// A failed system call: std::system_error with the call's name and the path it was about.
class SystemCallError : public std::system_error {
 public:
  SystemCallError(int number, std::string call, std::string path);

  int number() const { return code().value(); }
  const std::string& call() const { return call_; }
  // Empty when the call was about no path.
  const std::string& path() const { return path_; }

 private:
  std::string call_;
  std::string path_;
};

[[noreturn]] void throwSystemCallError(std::string_view call, std::string_view path = {});

// Runs a call that answers -1 with errno on failure; repeats it after EINTR. The result is the
// call's own.
template <class Call>
auto retryInterrupted(Call&& call) {
  for (;;) {
    auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

// The same; throws SystemCallError with the given name and path when it fails.
template <class Call>
auto systemCall(std::string_view name, Call&& call, std::string_view path = {}) {
  auto result = retryInterrupted(std::forward<Call>(call));
  if (result == -1) throwSystemCallError(name, path);
  return result;
}

// The C library's text for an error number. Safe from any thread.
std::string errorText(int number);

}  // namespace hoist
