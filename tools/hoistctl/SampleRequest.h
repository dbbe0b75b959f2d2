// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "connection/KLServiceConnection.h"

namespace hoist::ctl {

// A request to the hoist for samples of processes, under way from its construction on. Belongs to
// one thread.
class SampleRequest {
 public:
  // A report for each process; paths are absolute. Throws CommandError when the hoist cannot be
  // reached.
  SampleRequest(const std::string& serviceName, const std::vector<pid_t>& processes,
                const std::vector<std::string>& reports);

  // Waits for the answer for a while; whether it has come. Throws CommandError when it cannot come
  // any more or the hoist refuses the request.
  bool waitForAnswer(std::chrono::duration<double> time);
  // The answer: whether all samples ended in time.
  bool finished() const;

 private:
  struct Answer;

  Ref<Answer> answer_;
  Ref<KLServiceConnection> connection_;
};

}  // namespace hoist::ctl
