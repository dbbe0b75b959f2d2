// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/FileContent.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>

#include "platform/SystemCall.h"

// A clone where the file system can, else the data between the holes, copied by the kernel where it
// can, else by hand. The kernel's copy would fill the holes, so it is told of the data only.

namespace hoist::files {
namespace {

constexpr std::size_t kBuffer = 128 * 1024;
// A file this small is read and written faster than the kernel is asked what else it could do.
constexpr off_t kSmallFile = 64 * 1024;
constexpr off_t kEndOfFile = std::numeric_limits<off_t>::max();
constexpr int kStatBlock = 512;

// Errors by which the kernel says that it cannot do it in this way at all.
bool saysCannot(int error) {
  return error == EOPNOTSUPP || error == ENOTTY || error == EXDEV || error == EINVAL ||
         error == ENOSYS || error == EBADF || error == EPERM || error == ETXTBSY;
}

bool hasHoles(const struct stat& status) {
  return status.st_blocks * kStatBlock < status.st_size;
}

// Its own for each thread: copying has no state between files.
char* sharedBuffer() {
  thread_local auto buffer = std::make_unique<char[]>(kBuffer);
  return buffer.get();
}

}  // namespace

void ContentCopier::copy(int source, const struct stat& status, const LazyPath& sourcePath,
                         int target, const LazyPath& targetPath) {
  Files files{source, sourcePath, target, targetPath};
  bool sparse = hasHoles(status);
  if (status.st_size > kSmallFile && clone(files)) return;
  if (!sparse) {
    // The kernel's own files say that they are empty, and are not.
    if (status.st_size > kSmallFile) {
      copyRange(files, 0, status.st_size);
    } else {
      copyByHand(files, 0, kEndOfFile);
    }
    return;
  }
  for (off_t end = 0; end < status.st_size;) {
    off_t data = ::lseek(source, end, SEEK_DATA);
    if (data < 0 && errno == ENXIO) break;
    if (data < 0) {
      copyByHand(files, 0, kEndOfFile);
      return;
    }
    end = systemCallOn(sourcePath, "lseek", [&] { return ::lseek(source, data, SEEK_HOLE); });
    copyRange(files, data, end);
  }
  // A hole at the end.
  systemCallOn(targetPath, "ftruncate", [&] { return ::ftruncate(target, status.st_size); });
}

bool ContentCopier::clone(const Files& files) {
  if (!mayClone_) return false;
  if (retryInterrupted([&] { return ::ioctl(files.target, FICLONE, files.source); }) == 0) {
    return true;
  }
  if (!saysCannot(errno)) throwSystemCallError("ioctl(FICLONE)", files.targetPath());
  mayClone_ = false;
  return false;
}

void ContentCopier::copyRange(const Files& files, off_t from, off_t to) {
  if (mayCopyInKernel_ && copyInKernel(files, from, to)) return;
  copyByHand(files, from, to);
}

bool ContentCopier::copyInKernel(const Files& files, off_t& from, off_t to) {
  while (from < to) {
    off_t input = from;
    off_t output = from;
    auto copied = retryInterrupted([&] {
      return ::copy_file_range(files.source, &input, files.target, &output,
                               static_cast<std::size_t>(to - from), 0);
    });
    // The source became shorter: what there was is copied.
    if (copied == 0) return true;
    if (copied < 0) {
      // Whose fault it is the kernel does not say; reading and writing by hand will show.
      if (saysCannot(errno)) mayCopyInKernel_ = false;
      return false;
    }
    from += copied;
  }
  return true;
}

void ContentCopier::copyByHand(const Files& files, off_t from, off_t to) {
  auto buffer = sharedBuffer();
  while (from < to) {
    auto wanted = static_cast<std::size_t>(std::min<off_t>(kBuffer, to - from));
    auto length = systemCallOn(files.sourcePath, "pread",
                               [&] { return ::pread(files.source, buffer, wanted, from); });
    if (length == 0) return;
    for (ssize_t written = 0; written < length;) {
      written += systemCallOn(files.targetPath, "pwrite", [&] {
        return ::pwrite(files.target, buffer + written, static_cast<std::size_t>(length - written),
                        from + written);
      });
    }
    from += length;
  }
}

}  // namespace hoist::files
