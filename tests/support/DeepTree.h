// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "platform/FileDescriptor.h"

namespace hoist {

// Folders named "d", each in the one before, longer than any path: with a file "leaf" in the last.
inline void makeDeepTree(const std::string& top, int levels) {
  if (::mkdir(top.c_str(), 0755) != 0) throw std::runtime_error("mkdir");
  FileDescriptor folder(::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int level = 0; level < levels; ++level) {
    if (::mkdirat(folder.get(), "d", 0755) != 0) throw std::runtime_error("mkdirat");
    folder = FileDescriptor(::openat(folder.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  FileDescriptor leaf(::openat(folder.get(), "leaf", O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
  if (!leaf) throw std::runtime_error("openat");
}

// How many folders "d" there are, one in the other; -1 when there is no leaf in the last.
inline int depthOfTree(const std::string& top) {
  FileDescriptor folder(::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int depth = 0;; ++depth) {
    int next = ::openat(folder.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (next < 0) return ::faccessat(folder.get(), "leaf", F_OK, 0) == 0 ? depth : -1;
    folder.reset(next);
  }
}

}  // namespace hoist
