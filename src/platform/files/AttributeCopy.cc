// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/AttributeCopy.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
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

// The kernel's form of an access list, include/uapi/linux/posix_acl_xattr.h: a version, then the
// entries, little-endian.
constexpr std::string_view kAccessList = "system.posix_acl_access";
constexpr std::string_view kDefaultList = "system.posix_acl_default";
constexpr std::size_t kListHeader = 4;
constexpr std::size_t kListEntry = 8;
constexpr unsigned kOwningGroup = 0x04;

// What has extended attributes: an open file or folder, or a name in a folder for what cannot be
// opened.
class Holder {
 public:
  explicit Holder(int file) : file_(file) {}
  explicit Holder(const ItemName& item)
      : path_("/proc/self/fd/" + std::to_string(item.folder) + "/" + item.name) {}

  ssize_t list(std::vector<char>& names) const {
    return path_.empty() ? ::flistxattr(file_, names.data(), names.size())
                         : ::llistxattr(path_.c_str(), names.data(), names.size());
  }
  ssize_t get(const char* name, std::vector<char>& value) const {
    return path_.empty() ? ::fgetxattr(file_, name, value.data(), value.size())
                         : ::lgetxattr(path_.c_str(), name, value.data(), value.size());
  }
  int set(const char* name, const std::vector<char>& value) const {
    return path_.empty() ? ::fsetxattr(file_, name, value.data(), value.size(), 0)
                         : ::lsetxattr(path_.c_str(), name, value.data(), value.size(), 0);
  }
  int remove(std::string_view name) const {
    return path_.empty() ? ::fremovexattr(file_, name.data())
                         : ::lremovexattr(path_.c_str(), name.data());
  }

 private:
  int file_ = -1;
  std::string path_;
};

// Asks with a larger place until the answer fits; nothing when there is none.
template <class Ask>
std::optional<std::vector<char>> askUntilItFits(Ask&& ask) {
  std::vector<char> answer(1024);
  for (;;) {
    auto length = ask(answer);
    if (length >= 0) {
      answer.resize(static_cast<std::size_t>(length));
      return answer;
    }
    if (errno != ERANGE) return std::nullopt;
    answer.resize(answer.size() * 4);
  }
}

// The mode with the rights that the list gives the owning group. Beside a list, the group's bits of
// the mode are the mask: what any of the groups and users named in it may have at the most.
mode_t modeWithoutList(mode_t mode, const std::vector<char>& list) {
  auto byte = [&](std::size_t at) { return static_cast<unsigned char>(list[at]); };
  for (auto at = kListHeader; at + kListEntry <= list.size(); at += kListEntry) {
    if (byte(at) != kOwningGroup) continue;
    mode_t owningGroup = (byte(at + 2) & 07u) << 3;
    return mode & (owningGroup | ~mode_t{070});
  }
  return mode;
}

// Answers the mode that the target is to have beside what it took.
mode_t copyExtendedAttributes(const Holder& source, mode_t mode, const Holder& target,
                              const LazyPath& targetPath) {
  auto names = askUntilItFits([&](auto& place) { return source.list(place); });
  if (!names) return mode;
  for (auto name = names->data(); name < names->data() + names->size();
       name += std::char_traits<char>::length(name) + 1) {
    auto value = askUntilItFits([&](auto& place) { return source.get(name, place); });
    if (!value || target.set(name, *value) == 0) continue;
    if (!cannotHave(errno)) throwSystemCallError("setxattr", targetPath());
    if (name == kAccessList) mode = modeWithoutList(mode, *value);
  }
  return mode;
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

mode_t modeFor(mode_t mode, bool hasOwner) {
  return mode & kPermissions & ~(hasOwner ? 0 : kSetID);
}

// For what a file system may not have, or not let this process set: one without modes of its own
// (FAT) refuses any other than the one it shows, one that shows another owner (FUSE) refuses times.
template <class Call>
void setIfPossible(const LazyPath& targetPath, const char* name, Call&& call) {
  if (call() != 0 && !cannotHave(errno)) throwSystemCallError(name, targetPath());
}

}  // namespace

void dropInheritedLists(int item) {
  for (auto list : {kAccessList, kDefaultList}) (void)Holder(item).remove(list);
}

void dropInheritedLists(const ItemName& item) {
  Holder target(item);
  for (auto list : {kAccessList, kDefaultList}) (void)target.remove(list);
}

void copyAttributes(int source, const struct stat& status, int target, const LazyPath& targetPath) {
  struct stat present;
  systemCallOn(targetPath, "fstat", [&] { return ::fstat(target, &present); });
  bool hasOwner = copyOwner(
      status, present, [&](uid_t owner, gid_t group) { return ::fchown(target, owner, group); });
  auto mode = copyExtendedAttributes(Holder(source), status.st_mode, Holder(target), targetPath);
  setIfPossible(targetPath, "fchmod", [&] { return ::fchmod(target, modeFor(mode, hasOwner)); });
  timespec times[2] = {status.st_atim, status.st_mtim};
  setIfPossible(targetPath, "futimens", [&] { return ::futimens(target, times); });
}

void copyAttributesByName(const ItemName& source, const struct stat& status, const ItemName& target,
                          const LazyPath& targetPath) {
  int folder = target.folder;
  const char* name = target.name;
  struct stat present;
  systemCallOn(targetPath, "fstatat",
               [&] { return ::fstatat(folder, name, &present, AT_SYMLINK_NOFOLLOW); });
  bool hasOwner = copyOwner(status, present, [&](uid_t owner, gid_t group) {
    return ::fchownat(folder, name, owner, group, AT_SYMLINK_NOFOLLOW);
  });
  if (!S_ISLNK(status.st_mode)) {
    auto mode = copyExtendedAttributes(Holder(source), status.st_mode, Holder(target), targetPath);
    setIfPossible(targetPath, "fchmodat", [&] {
      return ::fchmodat(folder, name, modeFor(mode, hasOwner), AT_SYMLINK_NOFOLLOW);
    });
  }
  timespec times[2] = {status.st_atim, status.st_mtim};
  setIfPossible(targetPath, "utimensat",
                [&] { return ::utimensat(folder, name, times, AT_SYMLINK_NOFOLLOW); });
}

}  // namespace hoist::files
