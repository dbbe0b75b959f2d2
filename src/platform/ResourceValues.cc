// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/ResourceValues.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "platform/FileDescriptor.h"
#include "platform/FilePaths.h"
#include "platform/FileReading.h"
#include "platform/SystemCall.h"

#ifndef STATX_MNT_ID_UNIQUE
// Linux 6.8, include/uapi/linux/stat.h: the identity that is never used again.
#define STATX_MNT_ID_UNIQUE 0x00004000U
#endif

namespace hoist::resource {
namespace {

constexpr std::string_view kCacheTag = "Signature: 8a477f597d28d172789f06886806bc55";

template <class T>
Result<T> failed(const char* path) {
  int error = errno;
  return {std::nullopt, Error::posix(error, stringFromFileSystemRepresentation(path))};
}

bool look(const char* path, unsigned mask, struct statx& item) {
  return ::statx(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, mask, &item) == 0;
}

// An answer that only the name decides, for an item that exists.
template <class T>
Result<T> ofExisting(const char* path, T value) {
  struct statx item;
  if (!look(path, STATX_TYPE, item)) return failed<T>(path);
  return {std::move(value), nullptr};
}

bool hasExclusionAttribute(const char* path) {
  char value[8];
  auto length = ::lgetxattr(path, "user.xdg.robots.backup", value, sizeof value);
  return length > 0 && std::string_view(value, static_cast<std::size_t>(length)) == "false";
}

FileDescriptor folderAt(const char* path) {
  return FileDescriptor(::open(path, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

bool isTaggedAsCache(const char* path) {
  constexpr const char* kTag = "CACHEDIR.TAG";
  auto folder = folderAt(path);
  if (!folder || !platform::isRegularFileBeneath(folder.get(), kTag)) return false;
  try {
    auto tag = platform::openRegularFileBeneath(folder.get(), kTag);
    char start[kCacheTag.size()];
    auto length = retryInterrupted([&] { return ::pread(tag.get(), start, sizeof start, 0); });
    return length > 0 && std::string_view(start, static_cast<std::size_t>(length)) == kCacheTag;
  } catch (const SystemCallError&) {
    return false;  // Gone again, or not to be read.
  }
}

}  // namespace

Result<std::string> localizedName(const char* path) {
  return ofExisting(path, stringFromFileSystemRepresentation(baseName(path)));
}

Result<bool> isHidden(const char* path) {
  return ofExisting(path, baseName(path).starts_with('.'));
}

Result<bool> isHiddenExtension(const char* path) {
  return ofExisting(path, false);
}

Result<bool> isExcludedFromBackup(const char* path) {
  struct statx item;
  if (!look(path, STATX_TYPE, item)) return failed<bool>(path);
  bool excluded = (item.stx_attributes & STATX_ATTR_NODUMP) != 0 || hasExclusionAttribute(path) ||
                  (S_ISDIR(item.stx_mode) && isTaggedAsCache(path));
  return {excluded, nullptr};
}

Result<bool> isPackage(const char* path) {
  struct statx item;
  if (!look(path, STATX_TYPE, item)) return failed<bool>(path);
  if (!S_ISDIR(item.stx_mode) || pathExtension(path) != "app") return {false, nullptr};
  auto folder = folderAt(path);
  return {folder && platform::isRegularFileBeneath(folder.get(), "Contents/Info.plist"), nullptr};
}

Result<std::uint64_t> volumeIdentifier(const char* path) {
  struct statx item;
  if (!look(path, STATX_TYPE | STATX_MNT_ID | STATX_MNT_ID_UNIQUE, item))
    return failed<std::uint64_t>(path);
  return {item.stx_mnt_id, nullptr};
}

}  // namespace hoist::resource
