// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/FileDescriptor.h"

namespace hoist::xpc {

// A program at work, ended by SIGKILL with this object. Its standard output and error come through
// one pipe.
class Command {
 public:
  // input: its standard input; a pipe that closeInput() ends unless one is given.
  explicit Command(std::vector<std::string> arguments, FileDescriptor input = {});
  ~Command();
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  pid_t process() const { return process_; }
  // Waits for a line of its output.
  std::string readLine();
  void closeInput() { input_.reset(); }
  void kill(int signal);
  // Everything it still says, and its exit status (128 and the signal that ended it).
  std::string readToEnd();
  int wait();

 private:
  pid_t process_ = -1;
  FileDescriptor input_;
  FileDescriptor output_;
};

// What a program says, and how it ended.
struct CommandResult {
  int status;
  std::string output;
};
CommandResult runCommand(std::vector<std::string> arguments);

}  // namespace hoist::xpc
