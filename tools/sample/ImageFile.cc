// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// The sampled program chooses what it maps, what its files are called and what their debug links
// say, and the sampler may be root when it opens them. So a file is first held without being opened
// (O_PATH), its type is looked at, and only then that very file is opened: no FIFO is waited on, no
// device driver is called, no link leads elsewhere. A file's name is believed only if the file that
// it leads to is the mapped one. The debug link inside a program is not read at all: debug files
// are found by build identifier, below one folder that belongs to the system, never over a network.
#include "sample/ImageFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <string_view>

#include "sample/TargetProcess.h"

namespace hoist::sample {
namespace {

// Picked: the largest programs with debug information in them are a few GiB. Only the headers,
// symbols and unwinding tables are ever read.
constexpr off_t kLargestFile = off_t{8} * 1024 * 1024 * 1024;

bool isPlausible(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_size > 0 && status.st_size <= kLargestFile;
}

// Opens for reading what the O_PATH descriptor holds, once its status is to the caller's liking.
template <class Condition>
FileDescriptor reopenIf(const FileDescriptor& held, Condition&& condition) {
  struct stat status;
  if (!held || ::fstat(held.get(), &status) != 0 || !isPlausible(status) || !condition(status)) {
    return {};
  }
  return FileDescriptor(::open(fmt::format("/proc/self/fd/{}", held.get()).c_str(),
                               O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

FileDescriptor holdBelow(int folder, const std::string& path, std::uint64_t flags,
                         std::uint64_t resolve) {
  open_how how = {};
  how.flags = O_PATH | O_CLOEXEC | flags;
  how.resolve = resolve;
  return FileDescriptor(
      static_cast<int>(::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how)));
}

bool isMapped(const struct stat& status, const Mapping& mapping) {
  return status.st_ino == mapping.inode &&
         (std::uint64_t{major(status.st_dev)} << 32 | minor(status.st_dev)) == mapping.device;
}

// The kernel's own link from the mapping to the file: cannot be wrong, but only root may follow it.
FileDescriptor openByMapping(int mappedFiles, const Mapping& mapping) {
  const std::string name = fmt::format("{:x}-{:x}", mapping.start, mapping.end);
  FileDescriptor held(::openat(mappedFiles, name.c_str(), O_PATH | O_CLOEXEC));
  return reopenIf(held, [](const struct stat&) { return true; });
}

FileDescriptor openByName(int rootDirectory, const Mapping& mapping) {
  if (mapping.path.empty() || mapping.path[0] != '/') return {};
  FileDescriptor held =
      holdBelow(rootDirectory, mapping.path, O_NOFOLLOW, RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS);
  return reopenIf(held, [&](const struct stat& status) { return isMapped(status, mapping); });
}

}  // namespace

FileDescriptor openMappedFile(const TargetProcess& process, const Mapping& mapping) {
  if (!mapping.isFile()) return {};
  if (FileDescriptor file = openByMapping(process.mappedFiles(), mapping)) return file;
  return openByName(process.rootDirectory(), mapping);
}

std::string buildIDText(std::span<const std::byte> buildID) {
  std::string text;
  for (std::byte byte : buildID) text += fmt::format("{:02x}", static_cast<unsigned>(byte));
  return text;
}

FileDescriptor openDebugFile(const std::string& folder, std::span<const std::byte> buildID) {
  if (buildID.size() < 2 || buildID.size() > 64) return {};
  const std::string text = buildIDText(buildID);
  FileDescriptor root(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat owner;
  if (!root || ::fstat(root.get(), &owner) != 0) return {};
  FileDescriptor held =
      holdBelow(root.get(), fmt::format(".build-id/{}/{}.debug", text.substr(0, 2), text.substr(2)),
                0, RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS);
  return reopenIf(held, [&](const struct stat& status) {
    return status.st_uid == owner.st_uid && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
  });
}

}  // namespace hoist::sample
