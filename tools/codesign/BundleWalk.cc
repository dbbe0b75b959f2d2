// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The bundle's owner may rearrange it at any moment, and the reader may be root. So every step is
// taken from a folder's descriptor to a name in it, never through a path; what was opened is asked
// for its type again; and time stamps tell whether a file or folder was changed between the first
// look and the last. A change that slips through all the same is no way round the signature: the
// digests are those of the bytes that were read.
#include "codesign/BundleWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include "codesign/Limits.h"
#include "codesign/Problem.h"
#include "codesign/Seal.h"
#include "platform/SystemCall.h"

namespace hoist::codesign {
namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK;

bool isSameMoment(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool isUnchanged(const struct stat& before, const struct stat& after) {
  return before.st_size == after.st_size && before.st_mode == after.st_mode &&
         isSameMoment(before.st_mtim, after.st_mtim) && isSameMoment(before.st_ctim, after.st_ctim);
}

struct stat statusOf(int fd) {
  struct stat status;
  systemCall("fstat", [&] { return fstat(fd, &status); });
  return status;
}

// Runs the code; a system call that fails becomes a problem with the path.
template <class Code>
auto about(const std::string& path, Code&& code) {
  try {
    return code();
  } catch (const SystemCallError& error) {
    if (error.number() == EFBIG)
      throw Problem(path, "is too large or was changed while it was read");
    if (error.number() == EXDEV) throw Problem(path, "is on another file system");
    throw Problem(path, errorText(error.number()));
  }
}

class Walk {
 public:
  explicit Walk(BundleVisitor& visitor) : visitor_(visitor) {}

  // The path is empty or ends with a slash.
  void folder(int fd, const std::string& path, unsigned depth);

 private:
  std::vector<std::string> sortedNames(int folder, const std::string& path);
  void entry(int folder, const std::string& name, const std::string& path, unsigned depth);
  void link(int folder, const std::string& name, const std::string& path);
  void file(int folder, const std::string& name, const std::string& path);

  BundleVisitor& visitor_;
  std::uint64_t entries_ = 0;
  std::uint64_t contentBytes_ = 0;
};

void Walk::folder(int fd, const std::string& path, unsigned depth) {
  if (depth > kMaximumDepth) throw Problem(path, "is nested too deep");
  const auto before = statusOf(fd);
  for (const auto& name : sortedNames(fd, path)) {
    const auto entryPath = path + name;
    if (entryPath == kSealPath || entryPath == kSignaturePath) continue;
    about(entryPath, [&] { entry(fd, name, entryPath, depth); });
  }
  if (!isUnchanged(before, statusOf(fd))) throw Problem(path, "was changed while it was read");
}

std::vector<std::string> Walk::sortedNames(int folder, const std::string& path) {
  // The stream closes its own descriptor; the folder's stays the caller's.
  auto own = FileDescriptor::duplicate(folder);
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(own.get()), &closedir);
  if (!stream) throwSystemCallError("fdopendir", path);
  (void)own.release();
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (++entries_ > kMaximumEntries) throw Problem(path, "holds too many entries");
    names.emplace_back(name);
    errno = 0;
  }
  if (errno != 0) throwSystemCallError("readdir", path);
  std::sort(names.begin(), names.end());
  return names;
}

void Walk::entry(int folder, const std::string& name, const std::string& path, unsigned depth) {
  struct stat status;
  constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
  systemCall("fstatat", [&] { return fstatat(folder, name.c_str(), &status, kFlags); });
  if (S_ISDIR(status.st_mode)) {
    const auto inner = platform::openBeneath(folder, name, kFolderFlags);
    visitor_.visitFolder(path, statusOf(inner.get()).st_mode & kSealedModeBits);
    this->folder(inner.get(), path + '/', depth + 1);
  } else if (S_ISLNK(status.st_mode)) {
    link(folder, name, path);
  } else if (S_ISREG(status.st_mode)) {
    file(folder, name, path);
  } else {
    throw Problem(path, "is neither a file, a folder nor a link");
  }
}

void Walk::link(int folder, const std::string& name, const std::string& path) {
  std::array<char, kMaximumTargetBytes + 1> target;
  const auto readIt = [&] {
    return readlinkat(folder, name.c_str(), target.data(), target.size());
  };
  const auto size = static_cast<std::size_t>(systemCall("readlinkat", readIt));
  if (size > kMaximumTargetBytes) throw Problem(path, "is a link with too long a target");
  visitor_.visitLink(path, std::string(target.data(), size));
}

void Walk::file(int folder, const std::string& name, const std::string& path) {
  const auto file = platform::openRegularFileBeneath(folder, name);
  const auto status = statusOf(file.get());
  contentBytes_ += static_cast<std::uint64_t>(status.st_size);
  if (contentBytes_ > kMaximumContentBytes) throw Problem(path, "makes the bundle too large");
  visitor_.visitFile(path, file.get(), status);
}

}  // namespace

FileDescriptor openBundle(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  FileDescriptor folder(
      retryInterrupted([&] { return open(path.c_str(), kFolderFlags | O_CLOEXEC); }));
  if (!folder) throw Problem(fmt::format("the bundle cannot be opened: {}", errorText(errno)));
  return folder;
}

void walkBundle(int bundle, BundleVisitor& visitor) {
  // A descriptor of its own, so that the offset of the caller's stays.
  const auto folder = about(".", [&] { return platform::openBeneath(bundle, ".", kFolderFlags); });
  about(".", [&] { Walk(visitor).folder(folder.get(), "", 0); });
}

platform::SHA256Digest digestUnchanged(const std::string& path, int fd, const struct stat& status,
                                       const platform::ChunkUse& alsoUse) {
  return about(path, [&] {
    platform::SHA256Hasher hasher;
    const auto size = static_cast<std::uint64_t>(status.st_size);
    const auto count = platform::readInChunks(fd, size, [&](std::span<const std::uint8_t> chunk) {
      hasher.update(chunk);
      alsoUse(chunk);
    });
    if (count != size || !isUnchanged(status, statusOf(fd))) {
      throw Problem(path, "was changed while it was read");
    }
    return hasher.finish();
  });
}

std::string readBundleFile(int bundle, std::string_view path, std::uint64_t maximumBytes) {
  const std::string name(path);
  return about(name, [&] {
    const auto file = platform::openRegularFileBeneath(bundle, name);
    const auto bytes = platform::readWhole(file.get(), maximumBytes);
    return std::string(bytes.begin(), bytes.end());
  });
}

}  // namespace hoist::codesign
