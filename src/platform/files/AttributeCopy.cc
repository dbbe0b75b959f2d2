// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/AttributeCopy.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "platform/SystemCall.h"

namespace hoist::files {
namespace {

constexpr mode_t kPermissions = 07777;
constexpr mode_t kSetID = S_ISUID | S_ISGID;

// Whether an error means that the target cannot have it, rather than that something went wrong.
bool cannotHave(int error) {
  return error == EOPNOTSUPP || error == EPERM || error == EACCES || error == EINVAL ||
         error == ENODATA;
}

std::vector<char> namesOfAttributes(int source) {
  std::vector<char> names(1024);
  for (;;) {
    auto length = ::flistxattr(source, names.data(), names.size());
    if (length >= 0) {
      names.resize(static_cast<std::size_t>(length));
      return names;
    }
    if (errno != ERANGE) return {};
    names.resize(names.size() * 4);
  }
}

void copyExtendedAttribute(int source, int target, const char* name, const LazyPath& targetPath) {
  std::vector<char> value(256);
  ssize_t length;
  while ((length = ::fgetxattr(source, name, value.data(), value.size())) < 0 && errno == ERANGE) {
    value.resize(value.size() * 8);
  }
  if (length < 0) return;
  if (::fsetxattr(target, name, value.data(), static_cast<std::size_t>(length), 0) != 0 &&
      !cannotHave(errno)) {
    throwSystemCallError("fsetxattr", targetPath());
  }
}

void copyExtendedAttributes(int source, int target, const LazyPath& targetPath) {
  auto names = namesOfAttributes(source);
  for (auto name = names.data(); name < names.data() + names.size();) {
    copyExtendedAttribute(source, target, name, targetPath);
    name += std::char_traits<char>::length(name) + 1;
  }
}

// Answers whether the item has the owner and group; an ordinary user keeps at least the group, if
// he is in it.
template <class ChangeOwner>
bool copyOwner(const struct stat& status, const struct stat& present, ChangeOwner&& change) {
  constexpr uid_t kUnchanged = static_cast<uid_t>(-1);
  if (present.st_uid == status.st_uid && present.st_gid == status.st_gid) return true;
  if (change(status.st_uid, status.st_gid) == 0) return true;
  (void)change(kUnchanged, status.st_gid);
  return false;
}

mode_t modeFor(const struct stat& status, bool hasOwner) {
  return status.st_mode & kPermissions & ~(hasOwner ? 0 : kSetID);
}

// A file system without modes of its own (FAT) refuses any other than the one it shows.
template <class ChangeMode>
void copyMode(const LazyPath& targetPath, const char* call, ChangeMode&& change) {
  if (change() != 0 && !cannotHave(errno)) throwSystemCallError(call, targetPath());
}

}  // namespace

void copyAttributes(int source, const struct stat& status, int target, const LazyPath& targetPath) {
  struct stat present;
  systemCallOn(targetPath, "fstat", [&] { return ::fstat(target, &present); });
  bool hasOwner = copyOwner(
      status, present, [&](uid_t owner, gid_t group) { return ::fchown(target, owner, group); });
  copyExtendedAttributes(source, target, targetPath);
  copyMode(targetPath, "fchmod", [&] { return ::fchmod(target, modeFor(status, hasOwner)); });
  timespec times[2] = {status.st_atim, status.st_mtim};
  systemCallOn(targetPath, "futimens", [&] { return ::futimens(target, times); });
}

void copyAttributesByName(const struct stat& status, int folder, const char* name,
                          const LazyPath& targetPath) {
  struct stat present;
  systemCallOn(targetPath, "fstatat",
               [&] { return ::fstatat(folder, name, &present, AT_SYMLINK_NOFOLLOW); });
  bool hasOwner = copyOwner(status, present, [&](uid_t owner, gid_t group) {
    return ::fchownat(folder, name, owner, group, AT_SYMLINK_NOFOLLOW);
  });
  if (!S_ISLNK(status.st_mode)) {
    copyMode(targetPath, "fchmodat", [&] {
      return ::fchmodat(folder, name, modeFor(status, hasOwner), AT_SYMLINK_NOFOLLOW);
    });
  }
  timespec times[2] = {status.st_atim, status.st_mtim};
  systemCallOn(targetPath, "utimensat",
               [&] { return ::utimensat(folder, name, times, AT_SYMLINK_NOFOLLOW); });
}

}  // namespace hoist::files
