// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/ChildTask.h"
#include "system/Sandbox.h"

namespace hoist {

// The real daemon, started by hand in the sandbox, with its log in a file and its code-signing tool
// counted.
class RunningHoist {
 public:
  RunningHoist();
  // Ends it and everything that it started.
  ~RunningHoist();
  RunningHoist(const RunningHoist&) = delete;
  RunningHoist& operator=(const RunningHoist&) = delete;

  pid_t process() const { return task_->processIdentifier(); }
  bool isRunning() { return !task_->hasExited(); }
  std::string log() const;
  // Puts another program in the place of the sampling tool.
  void setSamplingTool(const std::string& program);
  // How often the code-signing tool has been run.
  int verifications() const;

  // What the daemon holds, for a comparison of before and after.
  struct Holdings {
    std::size_t descriptors;
    std::size_t threads;
    std::size_t children;
    friend bool operator<=(const Holdings& a, const Holdings& b) {
      return a.descriptors <= b.descriptors && a.threads <= b.threads && a.children <= b.children;
    }
  };
  Holdings holdings() const;
  // Its child process; 0 unless there is exactly one.
  pid_t onlyChild() const;
  // Waits, for ten seconds at most, until it holds no more than that; answers what it then holds.
  Holdings holdingsAfterSettling(const Holdings& expected) const;

 private:
  std::string folder_;
  Ref<ChildTask> task_;
};

// What hoistctl, run as the user, prints as JSON, and how it ended.
struct ClientResult {
  int status;
  nlohmann::json json;
};
ClientResult hoistctl(unsigned user, std::vector<std::string> arguments);
ClientResult launch(unsigned user, const std::string& executable, const std::string& command,
                    const std::vector<std::string>& flags = {});

}  // namespace hoist
