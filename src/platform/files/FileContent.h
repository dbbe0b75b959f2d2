// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <string_view>

#include "platform/files/LazyPath.h"

namespace hoist::files {

// Copies the content of open files. One object for all the files of a copy: it remembers what the
// two file systems cannot do. One thread.
class ContentCopier {
 public:
  // Source: open for reading; target: open for writing and empty. Holes stay holes. Throws
  // SystemCallError: with the source's path when reading fails, with the target's when writing
  // does.
  void copy(int source, const struct stat& status, const LazyPath& sourcePath, int target,
            const LazyPath& targetPath);

 private:
  struct Files {
    int source;
    const LazyPath& sourcePath;
    int target;
    const LazyPath& targetPath;
  };
  enum class Zeros { Written, Skipped };
  bool clone(const Files& files);
  void copyDataOnly(const Files& files, off_t size);
  void copyRange(const Files& files, off_t from, off_t to);
  bool copyInKernel(const Files& files, off_t& from, off_t to);
  // Up to the position or the end of the file. Skipped blocks of zeros become holes.
  void copyByHand(const Files& files, off_t from, off_t to, Zeros zeros = Zeros::Written);
  static void write(const Files& files, std::string_view bytes, off_t place);

  bool mayClone_ = true;
  bool mayCopyInKernel_ = true;
};

}  // namespace hoist::files
