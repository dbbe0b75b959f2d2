// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/FileDescriptor.h"

namespace hoist::bench {

// The ordinary user for whom helpers are launched; needs no entry anywhere.
inline constexpr uid_t kUser = 20001;

// A helper that has been started and is reachable. It ends when its input does, so when this object
// goes, which waits for it.
class RunningHelper {
 public:
  RunningHelper(pid_t process, FileDescriptor input) : pid_(process), input_(std::move(input)) {}
  RunningHelper(RunningHelper&& other) noexcept
      : pid_(std::exchange(other.pid_, -1)),
        input_(std::move(other.input_)),
        endpoint_(std::move(other.endpoint_)) {}
  RunningHelper& operator=(RunningHelper&&) = delete;
  ~RunningHelper();

  void say(std::string_view text) const;
  void setEndpoint(FileDescriptor endpoint) { endpoint_ = std::move(endpoint); }

 private:
  pid_t pid_;
  FileDescriptor input_;
  FileDescriptor endpoint_;
};

// A program that starts the helper itself: pipes, four lines, "OK\n", then the helper calls back
// over a plain socket with its endpoint.
class BareLauncher {
 public:
  // The words before the helper's path: another program that is to start it, or none.
  BareLauncher(std::string folder, std::string helper, std::vector<std::string> wrapper);
  // Throws std::runtime_error when the helper does not come up within ten seconds.
  RunningHelper launch() const;

 private:
  std::string socketPath_;
  FileDescriptor listener_;
  std::vector<std::string> command_;
};

}  // namespace hoist::bench
