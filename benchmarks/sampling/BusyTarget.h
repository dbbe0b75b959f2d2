// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/FileDescriptor.h"

namespace hoist::bench {

// A program whose threads compute without an end, at the bottom of deep stacks; ended with the
// object.
class BusyTarget {
 public:
  BusyTarget(int threads, int depth);
  ~BusyTarget();
  BusyTarget(const BusyTarget&) = delete;

  std::string id() const { return std::to_string(id_); }
  int threads() const { return threads_; }

  // How much has been computed so far.
  double turns() const;
  // What the computing threads did with their time so far, in seconds, all together. What a thread
  // neither ran nor waited for a processor it stood still.
  struct Time {
    double ran = 0;
    double waited = 0;
  };
  Time time() const;

 private:
  const int threads_;
  pid_t id_ = -1;
  FileDescriptor input_;
  FileDescriptor output_;
};

// A command that ran to its end.
struct Finished {
  int status;
  // In seconds.
  double elapsed;
  double processorTime;
  std::string output;
};
Finished run(const std::vector<std::string>& command);

// Seconds of a clock that only goes forward.
double now();

}  // namespace hoist::bench
