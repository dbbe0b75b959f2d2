// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include "platform/ChildTask.h"

namespace hoist {

struct ProgramResult {
  int status;
  std::string output;
};

// Runs a program to its end with its output captured; standard error goes the same way.
inline ProgramResult runProgram(const std::string& program,
                                const std::vector<std::string>& arguments) {
  PipeEnds output = makePipe();
  auto task = ChildTask::launch({.launchPath = program,
                                 .arguments = arguments,
                                 .standardOutput = output.writing.get(),
                                 .standardError = output.writing.get()});
  output.writing.reset();
  ProgramResult result{};
  std::array<char, 4096> buffer;
  for (ssize_t got; (got = ::read(output.reading.get(), buffer.data(), buffer.size())) > 0;) {
    result.output.append(buffer.data(), static_cast<std::size_t>(got));
  }
  task->waitUntilExit();
  result.status = task->terminationStatus();
  return result;
}

}  // namespace hoist
