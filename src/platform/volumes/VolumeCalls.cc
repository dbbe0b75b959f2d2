// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/volumes/VolumeCalls.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <string>

#include "platform/FileDescriptor.h"
#include "platform/FilePaths.h"
#include "platform/SystemCall.h"
#include "platform/attrlist/Attributes.h"
#include "platform/volumes/FileSystemTypes.h"
#include "platform/volumes/MountCapabilities.h"
#include "platform/volumes/MountTable.h"
#include "platform/volumes/VolumeIdentity.h"

// A path may lead to another mount than the one that was meant: one may lie over it, it may be gone
// and another one in its place. So whatever is asked about a mount is asked through a descriptor of
// its root, after a look whether that is the mount with the number from the mount table.

namespace hoist::volumes {
namespace {

// Asks nothing of the file system, so that neither its server nor its permissions get in the way:
// the kernel fills in the device and the mount all the same.
bool lookAtMount(int file, struct statx& item) {
  return ::statx(file, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, 0, &item) == 0;
}

// Nothing, with ENOENT, when another mount is at the place.
FileDescriptor openMount(const std::string& mountPoint, std::uint64_t id) {
  FileDescriptor root(::open(mountPoint.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct statx item;
  if (!root || !lookAtMount(root.get(), item)) return {};
  if (item.stx_mnt_id != id) {
    errno = ENOENT;
    return {};
  }
  return root;
}

// For questions that an O_PATH descriptor cannot answer. Nothing when it may not be opened, or
// should not be: a device may be mounted over a name, and opening one is no idle question.
FileDescriptor openForReading(int root, unsigned mode) {
  if (!S_ISDIR(mode) && !S_ISREG(mode)) return {};
  auto link = "/proc/self/fd/" + std::to_string(root);
  return FileDescriptor(::open(link.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
}

// FNV-1a.
std::uint32_t digestOf(std::string_view text) {
  std::uint32_t digest = 2166136261;
  for (unsigned char byte : text) digest = (digest ^ byte) * 16777619;
  return digest;
}

std::uint32_t flagsOf(const struct statfs& status, const Mount& mount) {
  constexpr std::pair<long, std::uint32_t> kFlags[] = {
      {ST_RDONLY, MNT_FLAG_RDONLY}, {ST_NOSUID, MNT_FLAG_NOSUID},   {ST_NODEV, MNT_FLAG_NODEV},
      {ST_NOEXEC, MNT_FLAG_NOEXEC}, {ST_NOATIME, MNT_FLAG_NOATIME},
  };
  std::uint32_t flags = 0;
  for (auto [ours, theirs] : kFlags) {
    if (status.f_flags & ours) flags |= theirs;
  }
  if (mount.local) flags |= MNT_FLAG_LOCAL;
  if (mount.hidden) flags |= MNT_FLAG_DONTBROWSE;
  if (mount.mountPoint == "/") flags |= MNT_FLAG_ROOTFS;
  if (!fileSystemType(mount.type).ownership) flags |= MNT_FLAG_IGNORE_OWNERSHIP;
  return flags;
}

// Fills in what the open root of the mount, or any item on it, tells.
bool describe(int root, const Mount& mount, VolumeStatistics& statistics) {
  struct statx item;
  struct statfs status;
  if (!lookAtMount(root, item) || ::fstatfs(root, &status) != 0) return false;
  statistics.filesystemID = {
      .device = static_cast<std::uint32_t>(::makedev(item.stx_dev_major, item.stx_dev_minor)),
      .typeDigest = digestOf(mount.type)};
  statistics.mountID = mount.id;
  statistics.flags = flagsOf(status, mount);
  statistics.blockSize = static_cast<std::uint64_t>(status.f_frsize);
  statistics.ioSize = static_cast<std::uint64_t>(status.f_bsize);
  statistics.totalBlocks = status.f_blocks;
  statistics.freeBlocks = status.f_bfree;
  statistics.availableBlocks = status.f_bavail;
  statistics.totalFiles = status.f_files;
  statistics.freeFiles = status.f_ffree;
  statistics.filesystemType = mount.type;
  statistics.mountPoint = mount.mountPoint;
  statistics.mountedFrom = mount.source;
  statistics.options = mount.options;
  return true;
}

// The highest folder above the path that is on the same mount: where it seems to be mounted for
// somebody whose root is no mount.
std::string highestOnMount(const char* path, std::uint64_t id) {
  std::string highest = realPath(path).value_or(path);
  for (;;) {
    auto above = directoryName(highest);
    if (above == highest || !openMount(above, id)) return highest;
    highest = above;
  }
}

// A mount that the table does not list.
Mount unlistedMount(int file, const char* path, std::uint64_t id) {
  Mount mount;
  mount.id = id;
  mount.source = "none";
  mount.mountPoint = highestOnMount(path, id);
  struct statfs status;
  if (::fstatfs(file, &status) == 0) {
    mount.type = fileSystemTypeOfMagic(static_cast<std::uint32_t>(status.f_type)).name;
  }
  return mount;
}

// Answers an error number, 0 for none.
int readTable(std::vector<Mount>& mounts) {
  try {
    mounts = readMountTable();
    return 0;
  } catch (const SystemCallError& error) {
    return error.number();
  }
}

int fail(int error) {
  errno = error;
  return -1;
}

AttributeSets validAttributes(const struct statx& root) {
  using namespace attrlist;
  AttributeSets sets;
  sets.common = ATTR_CMN_NAME | ATTR_CMN_DEVID | ATTR_CMN_OBJTYPE | ATTR_CMN_MODTIME |
                ATTR_CMN_CHGTIME | ATTR_CMN_OWNERID | ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK |
                ATTR_CMN_USERACCESS | ATTR_CMN_FILEID | ATTR_CMN_RETURNED_ATTRS;
  if (root.stx_mask & STATX_BTIME) sets.common |= ATTR_CMN_CRTIME;
  if (root.stx_attributes_mask & (STATX_ATTR_IMMUTABLE | STATX_ATTR_NODUMP)) {
    sets.common |= ATTR_CMN_FLAGS;
  }
  sets.volume = ATTR_VOL_INFO | ATTR_VOL_SIZE | ATTR_VOL_SPACEFREE | ATTR_VOL_SPACEAVAIL |
                ATTR_VOL_NAME | ATTR_VOL_CAPABILITIES | ATTR_VOL_UUID | ATTR_VOL_ATTRIBUTES;
  sets.directory = ATTR_DIR_LINKCOUNT | ATTR_DIR_MOUNTSTATUS;
  sets.file =
      ATTR_FILE_LINKCOUNT | ATTR_FILE_TOTALSIZE | ATTR_FILE_ALLOCSIZE | ATTR_FILE_DATALENGTH;
  return sets;
}

// The file system keeps these itself; the others are worked out.
AttributeSets nativeAttributes(AttributeSets sets, const FileSystemType& type) {
  using namespace attrlist;
  sets.common &= ~(ATTR_CMN_USERACCESS | ATTR_CMN_RETURNED_ATTRS);
  if (!type.ownership) sets.common &= ~(ATTR_CMN_OWNERID | ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK);
  sets.directory = 0;
  sets.file &= ~ATTR_FILE_DATALENGTH;
  return sets;
}

void describeSizes(const VolumeStatistics& statistics, VolumeAttributes& attributes) {
  attributes.freeBytes = statistics.freeBlocks * statistics.blockSize;
  attributes.availableBytes = statistics.availableBlocks * statistics.blockSize;
}

std::atomic<VolumeCalls*> overridden = nullptr;

}  // namespace

VolumeCalls::~VolumeCalls() = default;

int VolumeCalls::getfsstat(std::vector<VolumeStatistics>* statistics) {
  std::vector<Mount> mounts;
  if (int error = readTable(mounts)) return fail(error);
  if (!statistics) return static_cast<int>(mounts.size());
  statistics->clear();
  for (auto& mount : mounts) {
    auto root = openMount(mount.mountPoint, mount.id);
    if (!root && errno == ENOENT) continue;
    auto& described = statistics->emplace_back();
    if (root && describe(root.get(), mount, described)) continue;
    // What the table says is all there is; who asks for more gets the error.
    described.mountID = mount.id;
    described.mountPoint = mount.mountPoint;
    described.filesystemType = mount.type;
    described.mountedFrom = mount.source;
    if (mount.hidden) described.flags |= MNT_FLAG_DONTBROWSE;
  }
  return static_cast<int>(statistics->size());
}

int VolumeCalls::statfs(const char* path, VolumeStatistics& statistics) {
  FileDescriptor item(::open(path, O_PATH | O_CLOEXEC));
  struct statx look;
  if (!item || !lookAtMount(item.get(), look)) return -1;
  std::vector<Mount> mounts;
  if (int error = readTable(mounts)) return fail(error);
  auto listed = std::find_if(mounts.begin(), mounts.end(),
                             [&](const Mount& mount) { return mount.id == look.stx_mnt_id; });
  auto mount = listed != mounts.end() ? *listed : unlistedMount(item.get(), path, look.stx_mnt_id);
  auto root = openMount(mount.mountPoint, mount.id);
  return describe(root ? root.get() : item.get(), mount, statistics) ? 0 : -1;
}

int VolumeCalls::refresh(VolumeStatistics& statistics) {
  VolumeStatistics fresh;
  if (statfs(statistics.mountPoint.c_str(), fresh) != 0) return -1;
  if (fresh.mountID != statistics.mountID || fresh.filesystemID != statistics.filesystemID) {
    return fail(ENOENT);
  }
  statistics = std::move(fresh);
  return 0;
}

int VolumeCalls::getattrlist(const VolumeStatistics& volume, VolumeAttributes& attributes) {
  attributes = {};
  auto root = openMount(volume.mountPoint, volume.mountID);
  struct statx item;
  if (!root ||
      ::statx(root.get(), "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &item) != 0) {
    return -1;
  }
  if (item.stx_mask & STATX_BTIME) {
    attributes.createdTime = {static_cast<time_t>(item.stx_btime.tv_sec),
                              static_cast<long>(item.stx_btime.tv_nsec)};
  }
  attributes.totalBytes = volume.totalBlocks * volume.blockSize;
  describeSizes(volume, attributes);

  auto reading = openForReading(root.get(), item.stx_mode);
  auto identity = volumeIdentity(reading.get(), volume);
  attributes.name = identity.label;
  attributes.uuid = identity.uuid;
  attributes.capabilities = capabilitiesOfMount(reading.get(), volume, identity.typeOnDevice);
  attributes.validAttributes = validAttributes(item);
  attributes.nativeAttributes =
      nativeAttributes(attributes.validAttributes, fileSystemType(volume.filesystemType));
  return 0;
}

int VolumeCalls::getsizes(const VolumeStatistics& volume, VolumeAttributes& attributes) {
  auto root = openMount(volume.mountPoint, volume.mountID);
  struct statfs status;
  if (!root || ::fstatfs(root.get(), &status) != 0) return -1;
  auto blockSize = static_cast<std::uint64_t>(status.f_frsize);
  attributes.freeBytes = status.f_bfree * blockSize;
  attributes.availableBytes = status.f_bavail * blockSize;
  return 0;
}

int VolumeCalls::unmount(const VolumeStatistics& volume, bool forcibly) {
  // Not held open over the call: the volume would be busy.
  if (!openMount(volume.mountPoint, volume.mountID)) return -1;
  if (::umount2(volume.mountPoint.c_str(), UMOUNT_NOFOLLOW | (forcibly ? MNT_FORCE : 0)) != 0) {
    return -1;
  }
  if (openMount(volume.mountPoint, volume.mountID)) return fail(EBUSY);
  return 0;
}

VolumeCalls& VolumeCalls::current() {
  static auto& system = *new VolumeCalls;
  auto calls = overridden.load(std::memory_order_acquire);
  return calls ? *calls : system;
}

VolumeCallsOverride::VolumeCallsOverride(VolumeCalls& calls)
    : previous_(overridden.exchange(&calls)) {}

VolumeCallsOverride::~VolumeCallsOverride() {
  overridden = previous_;
}

}  // namespace hoist::volumes
