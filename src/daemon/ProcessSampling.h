// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/xpc/Reply.h"

namespace hoist {

// How long a request waits for its samples; those that take longer go on and end by themselves.
inline constexpr std::chrono::seconds kSamplingLimit{50};
// What is added to the mode of a report, so that whoever asked for it can move or delete it.
inline constexpr std::uint16_t kReportWriteBits = 0222;

// Which processes are sampled into which reports, for whom, and by which program.
struct SampleRequest {
  uid_t user;
  std::vector<std::int32_t> processes;
  std::vector<std::string> reports;
  std::string tool;
};

// Whether a user may have a process sampled: root every one, others their own and the helpers that
// were launched for them. A process is a user's own if it could not do anything that the user could
// not: all its user IDs are the user's and the kernel lets the user look into it.
bool mayBeSampled(pid_t process, uid_t user);

// Samples all processes at once, each with a run of the tool that ends as it likes, and calls the
// reply with whether all had ended within the limit. Returns at once. A process or a report that is
// not the user's to have is skipped with a Security exception in the log. Throws
// xpc::OperationRefused, and samples nothing, when there are fewer reports than processes or more
// of them than one request or one user may have. Safe from any thread.
void sampleProcesses(SampleRequest request, const xpc::Reply<bool>& reply);

}  // namespace hoist
