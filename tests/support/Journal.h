// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string>

#include "platform/FileDescriptor.h"

namespace hoist {

// A pipe that a console writes to. Entries are small enough for its buffer.
class Pipe {
 public:
  Pipe() {
    int ends[2];
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    reading_ = FileDescriptor(ends[0]);
    writing_ = FileDescriptor(ends[1]);
  }
  int writingEnd() const { return writing_.get(); }
  // Everything that was written; ends the writing.
  std::string contents() {
    writing_.reset();
    std::string text;
    char buffer[4096];
    ssize_t size;
    while ((size = ::read(reading_.get(), buffer, sizeof buffer)) > 0) {
      text.append(buffer, static_cast<std::size_t>(size));
    }
    return text;
  }

 private:
  FileDescriptor reading_;
  FileDescriptor writing_;
};

// A folder tree of its own for the journal's socket, which only this process sees.
inline bool enterEmptyRunFolder() {
  if (::unshare(CLONE_NEWNS) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("tmpfs", "/run", "tmpfs", MS_NOSUID | MS_NODEV, nullptr) == 0 &&
         ::mkdir("/run/systemd", 0755) == 0 && ::mkdir("/run/systemd/journal", 0755) == 0;
}

inline FileDescriptor boundJournalSocket() {
  FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{AF_UNIX, "/run/systemd/journal/socket"};
  ::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
  return socket;
}

// What the code writes to its standard error, then what the journal receives, when the code
// runs in a process of its own. Nothing where no mount namespace can be made.
template <class Code>
std::optional<std::string> receivedByJournal(Code code) {
  Pipe pipe;
  constexpr int kNoNamespace = 77;
  pid_t child = ::fork();
  if (child == 0) {
    if (!enterEmptyRunFolder()) ::_exit(kNoNamespace);
    auto socket = boundJournalSocket();
    code(pipe.writingEnd(), socket);
    char buffer[65536];
    ssize_t size = ::recv(socket.get(), buffer, sizeof buffer, MSG_DONTWAIT);
    [[maybe_unused]] auto passed =
        ::write(pipe.writingEnd(), buffer, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    ::_exit(0);
  }
  std::string received = pipe.contents();
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  bool possible = !(WIFEXITED(status) && WEXITSTATUS(status) == kNoNamespace);
  return possible ? std::optional(received) : std::nullopt;
}

}  // namespace hoist
