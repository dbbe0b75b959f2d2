// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

namespace hoist {

// Owns one file descriptor and closes it once. Move-only. Functions that take one by value take it
// over; an int parameter borrows. Not safe to change from several threads.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) reset(std::exchange(other.fd_, -1));
    return *this;
  }
  ~FileDescriptor() { reset(); }

  // A new close-on-exec descriptor of the same open file. Throws std::system_error.
  static FileDescriptor duplicate(int fd);

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  // Gives the descriptor up without closing it.
  [[nodiscard]] int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1);

 private:
  int fd_ = -1;
};

// A close-on-exec pipe. Throws std::system_error.
struct PipeEnds {
  FileDescriptor reading;
  FileDescriptor writing;
};
PipeEnds makePipe();

}  // namespace hoist
