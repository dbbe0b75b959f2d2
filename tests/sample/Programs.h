// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/FileDescriptor.h"

namespace hoist::sample {

// A folder of its own for one test, that every user may enter; removed at the end.
class TestFolder {
 public:
  TestFolder();
  ~TestFolder();
  std::string path(const std::string& name) const { return path_ + "/" + name; }
  std::string contents(const std::string& name) const;
  void write(const std::string& name, const std::string& contents) const;

 private:
  std::string path_;
};

// A running program with pipes to its standard input and output; killed and reaped at the end.
class Program {
 public:
  // The last function is called in the child before the program begins; it may make system calls
  // only.
  explicit Program(const std::vector<std::string>& command,
                   const std::function<void()>& prepare = {});
  ~Program();
  Program(Program&& other) = delete;

  pid_t id() const { return id_; }
  // Without its end of line; what there is if the program closes its output.
  std::string readLine();
  void writeLine(const std::string& line);
  void closeInput() { input_.reset(); }
  // All that comes until the program closes its output.
  std::string readAll();
  // The exit status, or 128 and the signal's number. Reaps.
  int wait();

 private:
  pid_t id_ = -1;
  bool reaped_ = false;
  FileDescriptor input_;
  FileDescriptor output_;
};

// Path of one of the programs in tests/sample/targets.
std::string targetPath(const std::string& name);

// One of them, running and ready.
class Target : public Program {
 public:
  explicit Target(const std::string& name, const std::string& mode = "stir", int threads = 1,
                  int depth = 5, const std::function<void()>& prepare = {});
  // Sends a line and reads the answer: how much has been computed.
  unsigned long tell(const std::string& line = "");
  unsigned long turns() { return tell(); }
};

// How a run of the sampler ended.
struct Outcome {
  int status;
  // Standard output and standard error.
  std::string output;
};

std::vector<std::string> samplerCommand(const std::vector<std::string>& arguments);
Outcome runSampler(const std::vector<std::string>& arguments,
                   const std::function<void()>& prepare = {});

// A field like "State" or "TracerPid" of /proc/ID/status; empty when there is none.
std::string statusField(pid_t id, const std::string& field);
// Waits until the condition holds; false after 20 seconds.
bool eventually(const std::function<bool()>& condition);
// Waits until a sampler holds the process, and answers whether one does.
bool isHeldSoon(pid_t id);

}  // namespace hoist::sample
