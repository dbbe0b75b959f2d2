// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/RunningSampler.h"

#include <signal.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace hoist::ctl {
namespace {

// A field of the kernel's status file; empty when there is no such process or thread.
std::string statusField(pid_t id, const std::string& key) {
  std::ifstream status("/proc/" + std::to_string(id) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(key + ":\t")) return line.substr(key.size() + 2);
  }
  return {};
}

}  // namespace

std::optional<pid_t> samplerOf(pid_t process) {
  // The kernel names the tracing thread; the signal is for its process.
  const pid_t thread = std::atoi(statusField(process, "TracerPid").c_str());
  if (thread <= 0) return std::nullopt;
  const pid_t sampler = std::atoi(statusField(thread, "Tgid").c_str());
  if (sampler <= 0 || statusField(sampler, "Name") != "sample") return std::nullopt;
  return sampler;
}

void endSampling(pid_t sampler) {
  ::kill(sampler, SIGINT);
}

}  // namespace hoist::ctl
