// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/TreeCopy.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <map>
#include <utility>
#include <vector>

#include "platform/FilePaths.h"
#include "platform/SystemCall.h"
#include "platform/files/AttributeCopy.h"
#include "platform/files/FileContent.h"
#include "platform/files/FolderNesting.h"
#include "platform/files/ItemPlace.h"
#include "platform/files/TreeWalk.h"

// The walk goes down the source; beside it goes a stack of the folders of the target. A new folder
// belongs to this process alone until its content is complete, then it gets its attributes.

namespace hoist::files {
namespace {

constexpr mode_t kPrivateFolder = 0700;
constexpr mode_t kPrivateFile = 0600;

struct Inode {
  dev_t device;
  ino_t number;
  friend auto operator<=>(const Inode&, const Inode&) = default;
};

class Copy final : public TreeVisitor {
 public:
  explicit Copy(ItemPlace target) : target_(std::move(target)) {}

  FileDescriptor enter(int parent, const FolderEntry& entry) override;
  void leave(int parent, const FolderEntry& entry, int folder) override;
  void item(int parent, const FolderEntry& entry) override;

 private:
  // Whether the next entry is the top of the tree. What is below it inherits nothing from above.
  bool isTop() const { return folders_.empty(); }
  // The folder of the target that the walk is in, and the name there for an entry: the top of the
  // tree has the target's name.
  int targetFolder() const { return isTop() ? target_.folder.get() : folders_.top(); }
  const char* targetName(const FolderEntry& entry) const {
    return isTop() ? target_.name.c_str() : entry.name.c_str();
  }
  std::string targetPath(const FolderEntry& entry) const;

  struct stat statusOf(int file, const FolderEntry& entry) const;
  void copyFile(int parent, const FolderEntry& entry);
  void copyLink(int parent, const FolderEntry& entry, const struct stat& status);
  void copySpecialFile(int parent, const FolderEntry& entry, const struct stat& status);
  // Gives the file its further name if it has been copied under another one.
  bool linkToCopy(const FolderEntry& entry, const struct stat& status);
  void rememberCopy(const FolderEntry& entry, const struct stat& status);

  ItemPlace target_;
  OpenFolders folders_;
  // The path of the current folder, and of everything in it, relative to the top of the target.
  std::vector<std::string> names_;
  // The folders of the source on the way to it, as they were before they were read.
  std::vector<struct stat> statuses_;
  std::map<Inode, std::string> copied_;
  ContentCopier content_;
};

std::string joined(const std::vector<std::string>& names, std::string_view last) {
  std::string path;
  for (auto& name : names) path.append(name).append("/");
  return path.append(last);
}

// Some file systems (of a network, FUSE) write only now, and say only now that it did not work.
void close(FileDescriptor file, const LazyPath& path) {
  // Interrupted or not, it is closed.
  if (::close(file.release()) != 0 && errno != EINTR) throwSystemCallError("close", path());
}

std::string Copy::targetPath(const FolderEntry& entry) const {
  return joinPath(target_.folderPath, joined(names_, targetName(entry)));
}

struct stat Copy::statusOf(int file, const FolderEntry& entry) const {
  struct stat status;
  if (::fstat(file, &status) != 0) throwSystemCallError("fstat", pathOf(entry));
  return status;
}

FileDescriptor Copy::enter(int parent, const FolderEntry& entry) {
  FileDescriptor source(
      ::openat(parent, entry.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!source) throwSystemCallError("openat", pathOf(entry));
  auto status = statusOf(source.get(), entry);
  auto name = targetName(entry);
  if (::mkdirat(targetFolder(), name, kPrivateFolder) != 0) {
    throwSystemCallError("mkdirat", targetPath(entry));
  }
  FileDescriptor made(
      ::openat(targetFolder(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!made) throwSystemCallError("openat", targetPath(entry));
  if (isTop()) dropInheritedLists(made.get());
  names_.emplace_back(name);
  statuses_.push_back(status);
  folders_.enter(std::move(made));
  return source;
}

void Copy::leave(int, const FolderEntry& entry, int folder) {
  auto made = folders_.leave();
  auto status = statuses_.back();
  names_.pop_back();
  statuses_.pop_back();
  copyAttributes(folder, status, made.get(), [&] { return targetPath(entry); });
}

void Copy::item(int parent, const FolderEntry& entry) {
  if (entry.type == DT_REG) {
    copyFile(parent, entry);
    return;
  }
  struct stat status;
  if (::fstatat(parent, entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    throwSystemCallError("fstatat", pathOf(entry));
  }
  if (linkToCopy(entry, status)) return;
  if (S_ISLNK(status.st_mode)) {
    copyLink(parent, entry, status);
  } else {
    copySpecialFile(parent, entry, status);
  }
  rememberCopy(entry, status);
}

void Copy::copyFile(int parent, const FolderEntry& entry) {
  // Not blocking, because a pipe may have taken the file's place.
  FileDescriptor source(
      ::openat(parent, entry.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!source) throwSystemCallError("openat", pathOf(entry));
  auto status = statusOf(source.get(), entry);
  if (!S_ISREG(status.st_mode)) throw SystemCallError(EINVAL, "openat", pathOf(entry));
  if (linkToCopy(entry, status)) return;

  auto name = targetName(entry);
  FileDescriptor made(::openat(targetFolder(), name,
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kPrivateFile));
  if (!made) throwSystemCallError("openat", targetPath(entry));
  LazyPath sourcePath = [&] { return pathOf(entry); };
  LazyPath path = [&] { return targetPath(entry); };
  if (isTop()) dropInheritedLists(made.get());
  try {
    content_.copy(source.get(), status, sourcePath, made.get(), path);
    copyAttributes(source.get(), status, made.get(), path);
    close(std::move(made), path);
  } catch (...) {
    ::unlinkat(targetFolder(), name, 0);
    throw;
  }
  rememberCopy(entry, status);
}

void Copy::copyLink(int parent, const FolderEntry& entry, const struct stat& status) {
  std::string target(PATH_MAX, '\0');
  auto length = ::readlinkat(parent, entry.name.c_str(), target.data(), target.size());
  if (length < 0) throwSystemCallError("readlinkat", pathOf(entry));
  target.resize(static_cast<std::size_t>(length));
  LazyPath path = [&] { return targetPath(entry); };
  systemCallOn(path, "symlinkat",
               [&] { return ::symlinkat(target.c_str(), targetFolder(), targetName(entry)); });
  copyAttributesByName({parent, entry.name.c_str()}, status, {targetFolder(), targetName(entry)},
                       path);
}

void Copy::copySpecialFile(int parent, const FolderEntry& entry, const struct stat& status) {
  LazyPath path = [&] { return targetPath(entry); };
  systemCallOn(path, "mknodat", [&] {
    return ::mknodat(targetFolder(), targetName(entry), (status.st_mode & S_IFMT) | kPrivateFile,
                     status.st_rdev);
  });
  ItemName made{targetFolder(), targetName(entry)};
  if (isTop()) dropInheritedLists(made);
  copyAttributesByName({parent, entry.name.c_str()}, status, made, path);
}

void Copy::rememberCopy(const FolderEntry& entry, const struct stat& status) {
  if (status.st_nlink < 2) return;
  copied_.emplace(Inode{status.st_dev, status.st_ino}, joined(names_, targetName(entry)));
}

bool Copy::linkToCopy(const FolderEntry& entry, const struct stat& status) {
  if (status.st_nlink < 2) return false;
  auto copied = copied_.find({status.st_dev, status.st_ino});
  if (copied == copied_.end()) return false;
  // Only inside the target, and through no link that somebody may have put there.
  open_how how = {.flags = O_PATH | O_NOFOLLOW | O_CLOEXEC,
                  .mode = 0,
                  .resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS};
  FileDescriptor file(static_cast<int>(
      ::syscall(SYS_openat2, target_.folder.get(), copied->second.c_str(), &how, sizeof how)));
  auto link = "/proc/self/fd/" + std::to_string(file.get());
  // Too deep to be named, too many links for the file system: then it is copied once more.
  return file && ::linkat(AT_FDCWD, link.c_str(), targetFolder(), targetName(entry),
                          AT_SYMLINK_FOLLOW) == 0;
}

}  // namespace

void copyTree(const std::string& from, const std::string& to) {
  auto source = ItemPlace::of(from);
  auto target = ItemPlace::of(to);
  struct stat status;
  systemCall(
      "fstatat",
      [&] {
        return ::fstatat(source.folder.get(), source.name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
      },
      from);
  struct stat there;
  if (::fstatat(target.folder.get(), target.name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0) {
    throw SystemCallError(EEXIST, "copy", to);
  }
  if (S_ISDIR(status.st_mode) && isInsideFolder(target.folder.get(), source.openFolder().get())) {
    throw SystemCallError(EINVAL, "copy", to);
  }
  FolderEntry top{source.name, static_cast<unsigned char>(IFTODT(status.st_mode)), 0};
  Copy copy(std::move(target));
  walkTree(source.folder.get(), top, source.folderPath, copy);
}

}  // namespace hoist::files
