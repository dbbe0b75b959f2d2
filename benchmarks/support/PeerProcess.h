// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/FileDescriptor.h"

namespace hoist::bench {

// Another process that serves for the time of a benchmark: this program with other arguments, or
// any other one. It is killed when this object goes, and when this process ends.
class PeerProcess {
 public:
  // Starts it and waits until it says that it is ready: it writes a byte to its standard output.
  // Throws std::runtime_error when it ends before that.
  explicit PeerProcess(const std::vector<std::string>& command);
  ~PeerProcess();
  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;

  pid_t processIdentifier() const { return pid_; }

  // What the peer itself calls when it can be reached.
  static void sayReady();
  // The path of the program that is running.
  static std::string thisProgram();

 private:
  pid_t pid_ = -1;
  FileDescriptor output_;
};

}  // namespace hoist::bench
