// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/FileContent.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>

#include "platform/SystemCall.h"

// A clone where the file system can, else the data between the holes, copied by the kernel where it
// can, else by hand. The kernel's copy would fill the holes, so it is told of the data only. Where
// the file system does not tell its holes (most of FUSE), blocks of zeros become holes.

namespace hoist::files {
namespace {

constexpr std::size_t kBuffer = 128 * 1024;
// A file this small is read and written faster than the kernel is asked what else it could do.
constexpr off_t kSmallFile = 64 * 1024;
constexpr off_t kEndOfFile = std::numeric_limits<off_t>::max();
constexpr int kStatBlock = 512;
// No file system of this machine has smaller holes.
constexpr ssize_t kSmallestHole = 4096;

// Errors by which the kernel says that it cannot do it in this way at all.
bool saysCannot(int error) {
  return error == EOPNOTSUPP || error == ENOTTY || error == EXDEV || error == EINVAL ||
         error == ENOSYS || error == EBADF || error == EPERM || error == ETXTBSY;
}

bool hasHoles(const struct stat& status) {
  return status.st_blocks * kStatBlock < status.st_size;
}

bool isZero(const char* bytes, ssize_t length) {
  return bytes[0] == 0 && std::memcmp(bytes, bytes + 1, static_cast<std::size_t>(length) - 1) == 0;
}

// Where the next block of zeros begins, or, from one, the next of anything else.
ssize_t endOfRun(const char* bytes, ssize_t from, ssize_t length, bool zero) {
  while (from < length) {
    auto block = std::min(kSmallestHole, length - from);
    if (isZero(bytes + from, block) != zero) break;
    from += block;
  }
  return from;
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
    if (status.st_size > kSmallFile) {
      copyRange(files, 0, status.st_size);
    } else {
      // The kernel's own files say that they are empty, and are not.
      copyByHand(files, 0, status.st_size > 0 ? status.st_size : kEndOfFile);
    }
    return;
  }
  copyDataOnly(files, status.st_size);
  // A hole at the end.
  systemCallOn(targetPath, "ftruncate", [&] { return ::ftruncate(target, status.st_size); });
}

void ContentCopier::copyDataOnly(const Files& files, off_t size) {
  for (off_t end = 0; end < size;) {
    off_t data = ::lseek(files.source, end, SEEK_DATA);
    if (data < 0 && errno == ENXIO) return;
    if (data >= 0) {
      end = systemCallOn(files.sourcePath, "lseek",
                         [&] { return ::lseek(files.source, data, SEEK_HOLE); });
    }
    if (data < 0 || (data == 0 && end >= size)) {
      // There are holes, and it does not know where.
      copyByHand(files, 0, kEndOfFile, Zeros::Skipped);
      return;
    }
    copyRange(files, data, end);
  }
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

void ContentCopier::copyByHand(const Files& files, off_t from, off_t to, Zeros zeros) {
  auto buffer = sharedBuffer();
  while (from < to) {
    auto wanted = static_cast<std::size_t>(std::min<off_t>(kBuffer, to - from));
    auto length = systemCallOn(files.sourcePath, "pread",
                               [&] { return ::pread(files.source, buffer, wanted, from); });
    if (length == 0) return;
    for (ssize_t done = 0; done < length;) {
      ssize_t end = length;
      if (zeros == Zeros::Skipped) {
        done = endOfRun(buffer, done, length, true);
        end = endOfRun(buffer, done, length, false);
      }
      write(files, {buffer + done, static_cast<std::size_t>(end - done)}, from + done);
      done = end;
    }
    from += length;
  }
}

void ContentCopier::write(const Files& files, std::string_view bytes, off_t place) {
  while (!bytes.empty()) {
    auto written = systemCallOn(files.targetPath, "pwrite", [&] {
      return ::pwrite(files.target, bytes.data(), bytes.size(), place);
    });
    bytes.remove_prefix(static_cast<std::size_t>(written));
    place += written;
  }
}

}  // namespace hoist::files
