// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/FolderNesting.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/SystemCall.h"
#include "platform/volumes/MountTable.h"

// The way up by ".." meets the other folder, unless it leaves a mount that shows a part of the
// other folder's tree at another place: what is above there is not what is above in the file
// system. Nor may an ordinary user climb everywhere. Then the mount table tells where in its file
// system each of the two is.

namespace hoist::files {
namespace {

enum class Climb { Met, NotMet, Refused };

bool isSame(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

struct stat statusOf(int folder) {
  struct stat status;
  systemCall("fstat", [&] { return ::fstat(folder, &status); });
  return status;
}

Climb climb(int folder, const struct stat& other) {
  FileDescriptor above;
  int current = folder;
  struct stat last {};
  for (;;) {
    auto status = statusOf(current);
    if (isSame(status, other)) return Climb::Met;
    // The root is its own parent.
    if (isSame(status, last)) return Climb::NotMet;
    last = status;
    above = FileDescriptor(::openat(current, "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!above && errno == EACCES) return Climb::Refused;
    if (!above) throwSystemCallError("openat(..)");
    current = above.get();
  }
}

// The kernel's number of the mount through which the folder was opened.
std::uint64_t mountOf(int folder) {
  struct statx item;
  systemCall("statx", [&] { return ::statx(folder, "", AT_EMPTY_PATH, STATX_MNT_ID, &item); });
  return item.stx_mnt_id;
}

// A folder without regard to where its file system is mounted.
struct Location {
  dev_t fileSystem;
  std::string path;  // with a slash at the end
};

// What follows the folder in the path, with a slash at the beginning; nothing when it is not below.
std::optional<std::string_view> pathBelow(std::string_view path, std::string_view folder) {
  if (folder == "/") folder = "";
  if (!path.starts_with(folder)) return std::nullopt;
  path.remove_prefix(folder.size());
  return path.empty() || path.front() == '/' ? std::optional(path) : std::nullopt;
}

// Nothing when nobody can tell: the path is too long for the kernel, or no mount of the table.
std::optional<Location> locationOf(int folder, const std::vector<volumes::Mount>& mounts) {
  char path[PATH_MAX];
  auto link = "/proc/self/fd/" + std::to_string(folder);
  auto length = ::readlink(link.c_str(), path, sizeof path);
  auto id = mountOf(folder);
  auto mount =
      std::find_if(mounts.begin(), mounts.end(), [&](auto& mount) { return mount.id == id; });
  if (length < 0 || mount == mounts.end()) return std::nullopt;
  auto below = pathBelow({path, static_cast<std::size_t>(length)}, mount->mountPoint);
  if (!below) return std::nullopt;
  std::string location = mount->root == "/" ? "" : mount->root;
  location += *below;
  if (!location.ends_with('/')) location += '/';
  return Location{mount->device, location};
}

bool isInsideByLocation(int folder, int other) {
  std::vector<volumes::Mount> mounts;
  try {
    mounts = volumes::readMountTable();
  } catch (const SystemCallError&) {
    return false;  // Nobody can tell, as in a root folder without /proc.
  }
  auto inner = locationOf(folder, mounts);
  auto outer = locationOf(other, mounts);
  return inner && outer && inner->fileSystem == outer->fileSystem &&
         inner->path.starts_with(outer->path);
}

}  // namespace

bool isInsideFolder(int folder, int other) {
  auto climbed = climb(folder, statusOf(other));
  if (climbed == Climb::Met) return true;
  if (climbed == Climb::NotMet && mountOf(folder) == mountOf(other)) return false;
  return isInsideByLocation(folder, other);
}

}  // namespace hoist::files
