// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "platform/Digest.h"
#include "platform/FileDescriptor.h"

namespace hoist::platform {

// A copy of a file in memory that nobody can change any more, not even its maker: what was checked
// is what can be executed or read later, whatever happens to the file. Safe to use from any thread.
class SealedFile {
 public:
  // Copies everything that the regular file holds, from its beginning; the descriptor's offset
  // stays. The name (at most 249 bytes) shows in the process's list of mappings only. Throws
  // SystemCallError: EINVAL when the descriptor is not a regular file's, EFBIG when there are more
  // than the maximum number of bytes. A file that changes meanwhile gives a mixture, with the
  // digests of that mixture.
  static SealedFile copyOf(int fd, std::uint64_t maximumBytes, const char* name);

  // Whether the file now holds just what the copy holds. Takes a sixth of the time of a digest.
  // Throws SystemCallError when it cannot be read.
  bool isCopyOf(int fd) const;

  // Open for execveat and reading; it stays the object's.
  int descriptor() const { return memory_.get(); }
  std::uint64_t size() const { return size_; }
  // Of exactly the bytes that the copy holds.
  const SHA1Digest& sha1() const { return sha1_; }
  const SHA256Digest& sha256() const { return sha256_; }

 private:
  SealedFile() = default;

  FileDescriptor memory_;
  std::uint64_t size_ = 0;
  SHA1Digest sha1_{};
  SHA256Digest sha256_{};
};

}  // namespace hoist::platform
