// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/NewFolder.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/SystemCall.h"
#include "platform/Trouble.h"
#include "platform/files/ItemPlace.h"

// Between the making of a folder and the opening of it, somebody who may write to the folder above
// can put something else there. So what is opened must be what a new folder is: this process's own,
// of the private mode, and born no earlier than this call. Such a thing nobody else can make, and
// an older folder of this process, moved there, is told by its birth.

namespace hoist::files {
namespace {

constexpr mode_t kPrivate = 0700;
constexpr std::uint32_t kUnchanged = ~0U;

// The clock that file systems stamp with is the coarse one, at the most.
timespec now() {
  timespec time;
  ::clock_gettime(CLOCK_REALTIME_COARSE, &time);
  return time;
}

bool isBefore(const statx_timestamp& time, const timespec& other) {
  if (time.tv_sec != other.tv_sec) return time.tv_sec < other.tv_sec;
  return static_cast<long>(time.tv_nsec) < other.tv_nsec;
}

// A private mode tells a folder of this process from others of the same user as well.
bool isNew(int folder, const timespec& started, bool isPrivate) {
  struct statx item;
  if (::statx(folder, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &item) != 0) return false;
  bool bornBefore = (item.stx_mask & STATX_BTIME) != 0 && isBefore(item.stx_btime, started);
  // A set-group-ID bit comes from the folder above.
  bool hasMode = !isPrivate || (item.stx_mode & 05777) == kPrivate;
  return item.stx_uid == ::geteuid() && hasMode && !bornBefore;
}

FileDescriptor openNew(const ItemPlace& place, const timespec& started, bool isPrivate,
                       const std::string& path) {
  FileDescriptor folder(::openat(place.folder.get(), place.name.c_str(),
                                 O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder || !isNew(folder.get(), started, isPrivate)) {
    throw SystemCallError(ESTALE, "mkdirat", path);
  }
  return folder;
}

void giveAttributes(int folder, const FolderAttributes& attributes, const std::string& path) {
  auto owner = attributes.ownerID.value_or(kUnchanged);
  auto group = attributes.groupID.value_or(kUnchanged);
  if (owner != kUnchanged || group != kUnchanged) {
    systemCall(
        "fchown", [&] { return ::fchown(folder, owner, group); }, path);
  }
  if (attributes.mode) {
    systemCall(
        "fchmod", [&] { return ::fchmod(folder, *attributes.mode); }, path);
  }
}

std::optional<std::uint32_t> groupNamed(const char* name) {
  std::vector<char> buffer(4096);
  struct group entry;
  struct group* found = nullptr;
  int error;
  while ((error = ::getgrnam_r(name, &entry, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 4);
  }
  return error == 0 && found ? std::optional<std::uint32_t>(found->gr_gid) : std::nullopt;
}

}  // namespace

void makeFolder(const std::string& path, const FolderAttributes& attributes) {
  auto place = ItemPlace::of(path);
  auto started = now();
  bool isPrivate = attributes.mode.has_value();
  systemCall(
      "mkdirat",
      [&] {
        return ::mkdirat(place.folder.get(), place.name.c_str(), isPrivate ? kPrivate : 0777);
      },
      path);
  auto folder = openNew(place, started, isPrivate, path);
  try {
    giveAttributes(folder.get(), attributes, path);
  } catch (...) {
    ::unlinkat(place.folder.get(), place.name.c_str(), AT_REMOVEDIR);
    throw;
  }
}

std::optional<std::uint32_t> groupAccount(const std::string& name) {
  if (auto group = groupNamed(name.c_str())) return group;
  if (name == "admin") {
    for (auto standIn : {"sudo", "wheel"}) {
      if (auto group = groupNamed(standIn)) return group;
    }
  }
  platform::reportTrouble(platform::Severity::Caution, "There is no group account " + name);
  return std::nullopt;
}

}  // namespace hoist::files
