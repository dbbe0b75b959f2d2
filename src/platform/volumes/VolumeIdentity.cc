// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/volumes/VolumeIdentity.h"

#include <blkid.h>
#include <linux/btrfs.h>
#include <linux/fs.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

#include "platform/volumes/FileSystemTypes.h"
#include "platform/volumes/XFSGeometry.h"

// A live file system knows its label and UUID better than its device: both can be changed while it
// is mounted.

namespace hoist::volumes {
namespace {

using UUID = std::array<std::uint8_t, 16>;

// Linux 6.9, include/uapi/linux/fs.h.
struct FilesystemUUID {
  std::uint8_t length;
  std::uint8_t uuid[16];
};
constexpr unsigned long kGetFilesystemUUID = _IOR(0x15, 0, FilesystemUUID);

// No UUID is all zeros.
std::optional<UUID> uuidOf(const std::uint8_t* bytes) {
  UUID uuid;
  std::copy_n(bytes, uuid.size(), uuid.begin());
  if (uuid == UUID{}) return std::nullopt;
  return uuid;
}

std::optional<UUID> liveUUID(int root, std::string_view type) {
  FilesystemUUID any{};
  if (::ioctl(root, kGetFilesystemUUID, &any) == 0 && any.length == sizeof any.uuid) {
    return uuidOf(any.uuid);
  }
  if (type == "xfs") {
    auto geometry = xfsGeometry(root);
    return geometry ? uuidOf(geometry->uuid) : std::nullopt;
  }
  btrfs_ioctl_fs_info_args btrfs{};
  if (type == "btrfs" && ::ioctl(root, BTRFS_IOC_FS_INFO, &btrfs) == 0) return uuidOf(btrfs.fsid);
  return std::nullopt;
}

// Nothing when the file system does not say; empty when it has none.
std::optional<std::string> liveLabel(int root) {
  char label[FSLABEL_MAX + 1] = {};
  if (::ioctl(root, FS_IOC_GETFSLABEL, label) != 0) return std::nullopt;
  return std::string(label);
}

std::optional<UUID> parseUUID(std::string_view text) {
  UUID uuid;
  std::size_t digits = 0;
  for (char c : text) {
    if (c == '-') continue;
    if (!std::isxdigit(static_cast<unsigned char>(c)) || digits == 2 * uuid.size()) {
      return std::nullopt;
    }
    auto value = static_cast<std::uint8_t>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
    auto& byte = uuid[digits++ / 2];
    byte = static_cast<std::uint8_t>(byte << 4 | value);
  }
  // The short serial numbers of FAT are no UUIDs.
  if (digits != 2 * uuid.size()) return std::nullopt;
  return uuidOf(uuid.data());
}

class SuperblockProbe {
 public:
  // Finds nothing when the device may not be read.
  explicit SuperblockProbe(const char* device)
      : probe_(blkid_new_probe_from_filename(device), &blkid_free_probe) {
    if (!probe_) return;
    blkid_probe_enable_superblocks(probe_.get(), 1);
    blkid_probe_set_superblocks_flags(probe_.get(),
                                      BLKID_SUBLKS_LABEL | BLKID_SUBLKS_UUID | BLKID_SUBLKS_TYPE);
    if (blkid_do_safeprobe(probe_.get()) != 0) probe_.reset();
  }
  std::string valueOf(const char* name) const {
    const char* value = nullptr;
    if (!probe_ || blkid_probe_lookup_value(probe_.get(), name, &value, nullptr) != 0) return "";
    return value;
  }
  explicit operator bool() const { return probe_ != nullptr; }

 private:
  std::unique_ptr<blkid_struct_probe, decltype(&blkid_free_probe)> probe_;
};

// What the system has noted down about a device when it could read it.
std::string notedValue(const char* device, const char* name) {
  std::unique_ptr<char, decltype(&::free)> value(blkid_get_tag_value(nullptr, name, device),
                                                 &::free);
  return value ? value.get() : "";
}

// What a server would have to answer is not asked: it may never do. The kernel's own file systems
// have no names.
bool answersByItself(const VolumeStatistics& volume) {
  auto& type = fileSystemType(volume.filesystemType);
  return (volume.flags & MNT_FLAG_LOCAL) != 0 && type.name != "unknown" && type.name != "fuse" &&
         type.name != "fuseblk" && type.name != "virtiofs";
}

// The number of the block device; nothing when it is none.
std::optional<dev_t> blockDevice(const std::string& path) {
  struct stat status;
  if (!path.starts_with('/') || ::stat(path.c_str(), &status) != 0 || !S_ISBLK(status.st_mode)) {
    return std::nullopt;
  }
  return status.st_rdev;
}

// Such a mount has the number of the device that it is on, whatever name may lead to that.
bool isProgramOnDevice(const VolumeStatistics& volume, dev_t device) {
  return fileSystemType(volume.filesystemType).name == "fuseblk" &&
         volume.filesystemID.device == device;
}

}  // namespace

VolumeIdentity volumeIdentity(int openRoot, const VolumeStatistics& volume) {
  VolumeIdentity identity;
  std::optional<std::string> label;
  if (openRoot >= 0 && answersByItself(volume)) {
    identity.uuid = liveUUID(openRoot, volume.filesystemType);
    label = liveLabel(openRoot);
  }
  std::optional<dev_t> number;
  if (!identity.uuid || !label) number = blockDevice(volume.mountedFrom);
  if (number) {
    auto device = volume.mountedFrom.c_str();
    SuperblockProbe probe(device);
    auto valueOf = [&](const char* name) {
      return probe ? probe.valueOf(name) : notedValue(device, name);
    };
    if (!label) label = valueOf("LABEL");
    if (!identity.uuid) identity.uuid = parseUUID(valueOf("UUID"));
    if (isProgramOnDevice(volume, *number)) identity.typeOnDevice = valueOf("TYPE");
  }
  if (label && !label->empty()) identity.label = std::move(label);
  return identity;
}

}  // namespace hoist::volumes
