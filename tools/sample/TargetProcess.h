// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/FileDescriptor.h"
#include "sample/MemoryMap.h"
#include "sample/ProcessStatus.h"
#include "values/Date.h"

namespace hoist::sample {

// The process that is sampled, held so that its number cannot come to mean another one: by a pidfd
// and by descriptors below /proc, which answer for this process or not at all. Everything that asks
// for rights is opened by open(). Immutable afterwards, so safe from any thread, but for
// memoryMap(), which one thread at a time may call.
class TargetProcess {
 public:
  // Throws Refusal: there is no such process, it is a zombie, a kernel thread, this process itself,
  // a 32-bit program, or it may not be looked into.
  static TargetProcess open(pid_t id);

  pid_t id() const { return id_; }
  const std::string& name() const { return status_.name; }
  // Of the executable, as the kernel shows it; empty when it shows none.
  const std::string& path() const { return path_; }
  pid_t parent() const { return status_.parent; }
  Date started() const;

  // Becomes readable when the process ends.
  int endDescriptor() const { return pidfd_.get(); }
  bool isAlive() const;
  // True if its number still is this process's: asked after attaching by number.
  bool isSame() const;

  // Started for a user (real user a client, effective user root), the sampler could look into every
  // process. This throws Refusal if that user may not: asked once the process's memory is open, and
  // again once it is held, because it may have become another program in between.
  void refuseWhatIsNotTheClients() const;

  std::vector<pid_t> threads() const;
  bool hasThread(pid_t thread) const;
  // Of one thread; empty when it is gone.
  std::string threadName(pid_t thread) const;
  std::optional<ProcessStatus> threadStatus(pid_t thread) const;
  FileDescriptor openThreadFile(pid_t thread, const char* name) const;

  // Reads from the process's memory; answers how many bytes could be read from the address on.
  std::size_t readMemory(Address address, std::span<std::byte> into) const;
  std::vector<Mapping> memoryMap() const;

  // Folders for ImageFile: /proc/PID/map_files (may be empty) and its root directory.
  int mappedFiles() const { return mappedFiles_.get(); }
  int rootDirectory() const { return rootDirectory_.get(); }

 private:
  TargetProcess() = default;
  void openPinned();
  void refuseWhatHasNoStacks() const;
  void openWithRights();
  void refuse32Bit() const;

  pid_t id_ = 0;
  ProcessStatus status_;
  std::string path_;
  FileDescriptor pidfd_;
  FileDescriptor directory_;
  FileDescriptor tasks_;
  FileDescriptor memory_;
  FileDescriptor maps_;
  FileDescriptor mappedFiles_;
  FileDescriptor rootDirectory_;
};

}  // namespace hoist::sample
