// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/volumes/VolumeRecords.h"

namespace hoist::volumes {

// What a file system calls itself.
struct VolumeIdentity {
  // For a program's file system on a block device (fuseblk): what the device holds, as libblkid
  // calls it; empty when that is not known for sure, and for every other mount.
  std::string typeOnDevice;
  std::optional<std::string> label;  // bytes; never empty
  std::optional<std::array<std::uint8_t, 16>> uuid;
};

// Asks the file system itself through the open root of the mount, which also ordinary users may,
// (-1 for none), and about what it does not tell the superblock on its device. Safe from any
// thread.
VolumeIdentity volumeIdentity(int openRoot, const VolumeStatistics& volume);

}  // namespace hoist::volumes
