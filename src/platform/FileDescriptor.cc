// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/FileDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/SystemCall.h"

namespace hoist {

FileDescriptor FileDescriptor::duplicate(int fd) {
  // Above the standard descriptors, so that a closed standard input is never replaced by accident.
  return FileDescriptor(
      systemCall("fcntl(F_DUPFD_CLOEXEC)", [&] { return ::fcntl(fd, F_DUPFD_CLOEXEC, 3); }));
}

void FileDescriptor::reset(int fd) {
  int old = std::exchange(fd_, fd);
  if (old >= 0) {
    // A destructor on an error path must not change the error that is about to be reported. After
    // EINTR the descriptor is closed all the same on Linux.
    int saved = errno;
    ::close(old);
    errno = saved;
  }
}

PipeEnds makePipe() {
  int ends[2];
  systemCall("pipe2", [&] { return ::pipe2(ends, O_CLOEXEC); });
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

}  // namespace hoist
