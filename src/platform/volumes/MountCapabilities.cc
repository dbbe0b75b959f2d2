// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/volumes/MountCapabilities.h"

#include <fcntl.h>
#include <libmount.h>
#include <unistd.h>

#include <string>

#include "platform/FileDescriptor.h"
#include "platform/volumes/FileSystemTypes.h"
#include "platform/volumes/XFSGeometry.h"

namespace hoist::volumes {
namespace {

constexpr std::uint32_t kAllFormat = 0x2FFFF;
constexpr std::uint32_t kAllInterfaces =
    VOL_CAP_INT_ATTRLIST | VOL_CAP_INT_READDIRATTR | VOL_CAP_INT_EXCHANGEDATA |
    VOL_CAP_INT_ALLOCATE | VOL_CAP_INT_VOL_RENAME | VOL_CAP_INT_ADVLOCK | VOL_CAP_INT_FLOCK |
    VOL_CAP_INT_EXTENDED_SECURITY | VOL_CAP_INT_USERACCESS | VOL_CAP_INT_MANLOCK |
    VOL_CAP_INT_EXTENDED_ATTR | VOL_CAP_INT_CLONE | VOL_CAP_INT_SNAPSHOT | VOL_CAP_INT_RENAME_SWAP |
    VOL_CAP_INT_RENAME_EXCL;
// What changes the volume.
constexpr std::uint32_t kWritingInterfaces = VOL_CAP_INT_EXCHANGEDATA | VOL_CAP_INT_ALLOCATE |
                                             VOL_CAP_INT_VOL_RENAME | VOL_CAP_INT_CLONE |
                                             VOL_CAP_INT_RENAME_SWAP | VOL_CAP_INT_RENAME_EXCL;
constexpr std::uint32_t kJournal = VOL_CAP_FMT_JOURNAL | VOL_CAP_FMT_JOURNAL_ACTIVE;

bool hasOption(const std::string& options, const char* name) {
  return mnt_optstr_get_option(options.c_str(), name, nullptr, nullptr) == 0;
}

// The driver shows the number of the task that writes the journal, "<none>" without a journal. The
// folder is named as the device's last path component.
bool ext4WritesJournal(const VolumeStatistics& volume) {
  auto device = volume.mountedFrom.substr(volume.mountedFrom.rfind('/') + 1);
  auto path = "/sys/fs/ext4/" + device + "/journal_task";
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  char first = 0;
  return file && ::read(file.get(), &first, 1) == 1 && first >= '0' && first <= '9';
}

// What is kept on a device is the same whoever reads it; what can be done there, FUSE must pass on.
void setHeldType(const FileSystemType& held, Capabilities& can) {
  can.format = held.format & ~VOL_CAP_FMT_FAST_STATFS;
  can.interfaces &= held.interfaces;
}

}  // namespace

Capabilities capabilitiesOfMount(int openRoot, const VolumeStatistics& volume,
                                 std::string_view typeOnDevice) {
  auto& type = fileSystemType(volume.filesystemType);
  Capabilities can = {.format = type.format,
                      .interfaces = type.interfaces,
                      .validFormat = kAllFormat,
                      .validInterfaces = kAllInterfaces};
  if (auto& held = fileSystemType(typeOnDevice); held.name != "unknown") setHeldType(held, can);
  if (type.name.starts_with("ext") && ext4WritesJournal(volume)) can.format |= kJournal;
  if (type.name == "xfs" && xfsClones(openRoot)) can.interfaces |= VOL_CAP_INT_CLONE;
  if (hasOption(volume.options, "noacl")) can.interfaces &= ~VOL_CAP_INT_EXTENDED_SECURITY;
  if (volume.flags & MNT_FLAG_RDONLY) can.interfaces &= ~kWritingInterfaces;
  return can;
}

}  // namespace hoist::volumes
