// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A memory file belongs to nobody but this process until its descriptor is passed on, so the bytes
// that are written into it are the bytes it holds when the seals are set; they are digested on the
// way, while they are in the processor's cache, instead of being read back.
#include "platform/SealedFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "platform/FileReading.h"
#include "platform/SystemCall.h"

namespace hoist::platform {
namespace {

// From <linux/memfd.h> of Linux 6.3; older headers lack it.
constexpr unsigned kMemfdExecutable = 0x0010;

FileDescriptor makeMemoryFile(const char* name) {
  constexpr unsigned kFlags = MFD_CLOEXEC | MFD_ALLOW_SEALING;
  int fd = memfd_create(name, kFlags | kMemfdExecutable);
  // A kernel that does not know the flag makes every memory file executable.
  if (fd == -1 && errno == EINVAL) fd = memfd_create(name, kFlags);
  return FileDescriptor(systemCall(
      "memfd_create", [&] { return fd; }, name));
}

void writeAll(int fd, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const auto count = systemCall("write", [&] { return write(fd, bytes.data(), bytes.size()); });
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
}

// Answers how many bytes there were; fewer than asked for only at the end.
std::size_t readAt(int fd, std::span<std::uint8_t> bytes, std::uint64_t offset) {
  std::size_t got = 0;
  while (got < bytes.size()) {
    const auto count = systemCall("pread", [&] {
      return pread(fd, bytes.data() + got, bytes.size() - got, static_cast<off_t>(offset + got));
    });
    if (count == 0) break;
    got += static_cast<std::size_t>(count);
  }
  return got;
}

void requireRegularFile(int fd) {
  struct stat status;
  systemCall("fstat", [&] { return fstat(fd, &status); });
  if (S_ISREG(status.st_mode)) return;
  errno = EINVAL;
  throwSystemCallError("fstat");
}

void seal(int fd) {
  constexpr int kSeals = F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL;
  systemCall("fcntl", [&] { return fcntl(fd, F_ADD_SEALS, kSeals); });
}

}  // namespace

SealedFile SealedFile::copyOf(int fd, std::uint64_t maximumBytes, const char* name) {
  requireRegularFile(fd);
  SealedFile copy;
  copy.memory_ = makeMemoryFile(name);
  SHA1Hasher sha1;
  SHA256Hasher sha256;
  copy.size_ = readInChunks(fd, maximumBytes, [&](std::span<const std::uint8_t> chunk) {
    writeAll(copy.memory_.get(), chunk);
    sha1.update(chunk);
    sha256.update(chunk);
  });
  seal(copy.memory_.get());
  copy.sha1_ = sha1.finish();
  copy.sha256_ = sha256.finish();
  return copy;
}

// By plain reads: under a mapping, whoever owns the file could cut it short and end the process.
bool SealedFile::isCopyOf(int fd) const {
  constexpr std::size_t kPiece = 32 * 1024;  // both pieces stay in the processor's cache
  const auto buffer = std::make_unique_for_overwrite<std::uint8_t[]>(2 * kPiece);
  const std::span<std::uint8_t> theirs(buffer.get(), kPiece);
  const std::span<std::uint8_t> ours(buffer.get() + kPiece, kPiece);
  for (std::uint64_t offset = 0;; offset += kPiece) {
    const auto count = readAt(fd, theirs, offset);
    if (readAt(descriptor(), ours, offset) != count) return false;
    if (std::memcmp(theirs.data(), ours.data(), count) != 0) return false;
    if (count < kPiece) return true;
  }
}

}  // namespace hoist::platform
