// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/Mutex.h"
#include "values/Ref.h"

namespace hoist {

// What to start and how. Descriptors are borrowed until launch() returns.
struct ChildTaskOptions {
  // The file to execute, and the child's argument 0. Looked up by no search path.
  std::string launchPath;
  std::vector<std::string> arguments;
  // Replaces the whole environment; inherited when absent.
  std::optional<std::map<std::string, std::string>> environment;
  // The child's standard descriptors; -1 inherits the parent's.
  int standardInput = -1;
  int standardOutput = -1;
  int standardError = -1;
  // Executes the bytes behind this descriptor instead of the file at launchPath, which stays
  // argument 0.
  int executable = -1;
  // Starts the child as a set-user-ID executable of this owner would be started by root: real user
  // 0, effective and saved user the owner. Only root can.
  std::optional<uid_t> setUserIDOwner;
  // Sets the real user only and leaves the effective one 0: a tool that does its user's errand with
  // root's rights.
  std::optional<uid_t> realUser;
};

// A child process. It gets its standard descriptors and no others, default signal handlers, an
// empty signal mask, a umask of 022 and the working directory "/". Safe from any thread.
//
// A child that has ended stays a zombie until waitUntilExit() or hasExited() has been called:
// whoever launches one sees to that, if need be by watching pidfd() in the run loop.
class ChildTask {
 public:
  // Throws SystemCallError named after the call that failed, "execve" included: a child that could
  // not be executed was never there. A process that ignores SIGCHLD does so no longer afterwards.
  static Ref<ChildTask> launch(const ChildTaskOptions& options);

  pid_t processIdentifier() const { return pid_; }
  // Readable once the child has ended; belongs to the task.
  int pidfd() const { return pidfd_.get(); }

  // Waits without a limit for the end.
  void waitUntilExit();
  // Whether the child has ended; collects it if so.
  bool hasExited();
  // Exit status, or 128 + the signal that ended it, as shells have it; 0 while it runs.
  int terminationStatus() const;
  // Ends the child at once; nothing if it has ended.
  void kill();

 private:
  ChildTask(pid_t pid, FileDescriptor pidfd) : pid_(pid), pidfd_(std::move(pidfd)) {}
  bool collect(int options);

  const pid_t pid_;
  const FileDescriptor pidfd_;
  mutable Mutex mutex_;
  bool exited_ GUARDED_BY(mutex_) = false;
  int status_ GUARDED_BY(mutex_) = 0;
};

}  // namespace hoist
