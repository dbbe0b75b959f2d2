// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/FileManager.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <stdio.h>
#include <sys/stat.h>

#include <cerrno>
#include <vector>

#include "platform/FilePaths.h"
#include "platform/SystemCall.h"
#include "platform/files/FolderNesting.h"
#include "platform/files/ItemPlace.h"
#include "platform/files/NewFolder.h"
#include "platform/files/TreeCopy.h"
#include "platform/files/TreeRemoval.h"

namespace hoist::files {
namespace {

Ref<Error> errorOf(int number, const std::string& path) {
  return Error::posix(number, stringFromFileSystemRepresentation(path));
}

// What the code throws, as an error.
template <class Code>
Ref<Error> attempt(const std::string& path, Code&& code) {
  try {
    code();
    return nullptr;
  } catch (const SystemCallError& error) {
    return errorOf(error.number(), error.path().empty() ? path : error.path());
  }
}

bool look(const std::string& path, struct stat& status) {
  return ::lstat(path.c_str(), &status) == 0;
}

bool isSame(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// A rename that replaces nothing; where the file system cannot promise that, after a look.
void renameExclusively(const std::string& from, const std::string& to) {
  auto rename = [&](unsigned flags) {
    return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags);
  };
  if (rename(RENAME_NOREPLACE) == 0) return;
  if (errno == EINVAL) {
    struct stat there;
    if (look(to, there)) throw SystemCallError(EEXIST, "rename", to);
    if (rename(0) == 0) return;
  }
  throwSystemCallError("rename", errno == EEXIST ? to : from);
}

std::uint32_t numberIn(const Value& value) {
  return static_cast<std::uint32_t>(value.integerValue().value_or(0));
}

const char* typeName(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return "NSFileTypeDirectory";
    case S_IFREG:
      return "NSFileTypeRegular";
    case S_IFLNK:
      return "NSFileTypeSymbolicLink";
    case S_IFSOCK:
      return "NSFileTypeSocket";
    case S_IFCHR:
      return "NSFileTypeCharacterSpecial";
    case S_IFBLK:
      return "NSFileTypeBlockSpecial";
    default:
      return "NSFileTypeUnknown";
  }
}

// The name that a reentrant look-up in an account database finds.
template <class Entry, class Look>
std::optional<std::string> accountName(char* Entry::*name, Look&& look) {
  std::vector<char> buffer(4096);
  Entry entry;
  Entry* found = nullptr;
  int error;
  while ((error = look(&entry, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 4);
  }
  return error == 0 && found ? std::optional<std::string>(found->*name) : std::nullopt;
}

std::optional<std::string> nameOfUser(uid_t user) {
  return accountName(&passwd::pw_name,
                     [&](passwd* entry, char* buffer, std::size_t size, passwd** found) {
                       return ::getpwuid_r(user, entry, buffer, size, found);
                     });
}

std::optional<std::string> nameOfGroup(gid_t group) {
  return accountName(&group::gr_name, [&](struct group* entry, char* buffer, std::size_t size,
                                          struct group** found) {
    return ::getgrgid_r(group, entry, buffer, size, found);
  });
}

}  // namespace

bool fileExistsAtPath(const std::string& path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0;
}

Ref<Error> moveItem(const std::string& from, const std::string& to) {
  return attempt(from, [&] {
    try {
      renameExclusively(from, to);
    } catch (const SystemCallError& error) {
      if (error.number() != EXDEV) throw;
      copyTree(from, to);
      removeTree(from);
    }
  });
}

Ref<Error> copyItem(const std::string& from, const std::string& to) {
  return attempt(from, [&] { copyTree(from, to); });
}

Ref<Error> removeItem(const std::string& path) {
  return attempt(path, [&] { removeTree(path); });
}

Ref<Error> refusalToReplace(const std::string& from, const std::string& to) {
  struct stat source, target;
  if (!look(from, source) || !look(to, target)) return nullptr;
  if (isSame(source, target)) return errorOf(EEXIST, to);
  return attempt(from, [&] {
    auto fromPlace = ItemPlace::of(from), toPlace = ItemPlace::of(to);
    bool holdsSource = S_ISDIR(target.st_mode) &&
                       isInsideFolder(fromPlace.folder.get(), toPlace.openFolder().get());
    bool isPartOfSource = S_ISDIR(source.st_mode) &&
                          isInsideFolder(toPlace.folder.get(), fromPlace.openFolder().get());
    if (holdsSource || isPartOfSource) throw SystemCallError(EINVAL, "remove", to);
  });
}

Ref<Error> createDirectory(const std::string& path, const Dictionary& attributes) {
  FolderAttributes wanted;
  for (auto& [key, value] : attributes) {
    if (key == kFilePosixPermissions) wanted.mode = numberIn(value);
    if (key == kFileOwnerAccountID) wanted.ownerID = numberIn(value);
    if (key == kFileGroupOwnerAccountID) wanted.groupID = numberIn(value);
    if (key == kFileGroupOwnerAccountName && value.string()) {
      wanted.groupID = groupAccount(*value.string());
    }
  }
  return attempt(path, [&] { makeFolder(path, wanted); });
}

std::optional<Dictionary> attributesOfItem(const std::string& path) {
  struct statx item;
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME,
              &item) != 0) {
    return std::nullopt;
  }
  auto dateOf = [](const statx_timestamp& time) { return Date(time.tv_sec, time.tv_nsec); };
  Dictionary attributes = {{kFileType, typeName(item.stx_mode)},
                           {kFileSize, item.stx_size},
                           {kFileModificationDate, dateOf(item.stx_mtime)},
                           {kFileReferenceCount, item.stx_nlink},
                           {kFilePosixPermissions, item.stx_mode & 07777u},
                           {kFileOwnerAccountID, item.stx_uid},
                           {kFileGroupOwnerAccountID, item.stx_gid},
                           {kFileSystemFileNumber, item.stx_ino}};
  if (item.stx_mask & STATX_BTIME) attributes[kFileCreationDate] = dateOf(item.stx_btime);
  if (auto name = nameOfUser(item.stx_uid)) attributes[kFileOwnerAccountName] = *name;
  if (auto name = nameOfGroup(item.stx_gid)) attributes[kFileGroupOwnerAccountName] = *name;
  return attributes;
}

}  // namespace hoist::files
