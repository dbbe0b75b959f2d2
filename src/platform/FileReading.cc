// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/FileReading.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <memory>

#include "platform/SystemCall.h"

namespace hoist::platform {
namespace {

// Large enough that the calls do not show beside a digest, small enough to stay in the first-level
// cache between the read and the use of its bytes, and to leave the others to whoever needs them
// next.
constexpr std::size_t kChunkSize = 32 * 1024;

// O_NONBLOCK: a FIFO without a writer must not hold us up before its type is known. O_NOCTTY: a
// terminal must not become ours.
constexpr int kOpenFlags = O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;

void requireRegularFile(int fd, const std::string& path) {
  struct stat status;
  systemCall(
      "fstat", [&] { return fstat(fd, &status); }, path);
  if (S_ISREG(status.st_mode)) return;
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  throwSystemCallError("open", path);
}

}  // namespace

FileDescriptor openRegularFile(const std::string& path) {
  FileDescriptor file(systemCall(
      "open", [&] { return open(path.c_str(), kOpenFlags); }, path));
  requireRegularFile(file.get(), path);
  return file;
}

FileDescriptor openBeneath(int folder, const std::string& path, int flags) {
  open_how how{};
  how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV;
  const auto openIt = [&] { return syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how); };
  return FileDescriptor(static_cast<int>(systemCall("openat2", openIt, path)));
}

FileDescriptor openRegularFileBeneath(int folder, const std::string& path) {
  FileDescriptor file = openBeneath(folder, path, kOpenFlags);
  requireRegularFile(file.get(), path);
  return file;
}

bool isRegularFileBeneath(int folder, const std::string& path) {
  try {
    const auto name = openBeneath(folder, path, O_PATH | O_NOFOLLOW);
    struct stat status;
    return fstat(name.get(), &status) == 0 && S_ISREG(status.st_mode);
  } catch (const SystemCallError&) {
    return false;
  }
}

std::uint64_t readInChunks(int fd, std::uint64_t maximumBytes, const ChunkUse& use) {
  const auto buffer = std::make_unique_for_overwrite<std::uint8_t[]>(kChunkSize);
  std::uint64_t total = 0;
  for (;;) {
    const auto readIt = [&] {
      return pread(fd, buffer.get(), kChunkSize, static_cast<off_t>(total));
    };
    const auto count = static_cast<std::size_t>(systemCall("pread", readIt));
    if (count == 0) return total;
    if (count > maximumBytes - total) {
      errno = EFBIG;
      throwSystemCallError("pread");
    }
    total += count;
    use({buffer.get(), count});
  }
}

std::vector<std::uint8_t> readWhole(int fd, std::uint64_t maximumBytes) {
  std::vector<std::uint8_t> bytes;
  readInChunks(fd, maximumBytes, [&](std::span<const std::uint8_t> chunk) {
    bytes.insert(bytes.end(), chunk.begin(), chunk.end());
  });
  return bytes;
}

}  // namespace hoist::platform
