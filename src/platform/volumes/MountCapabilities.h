// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "platform/volumes/VolumeRecords.h"

namespace hoist::volumes {

// What this very mount can do: the table of types, corrected by what the file system says where
// asking costs next to nothing (the geometry of xfs, what ext4 shows in /sys), by the options of
// the mount and by its being read-only. Without an open root (-1), what can be known without it.
// For a program's file system on a device, with the type of what the device holds
// (VolumeIdentity.h).
Capabilities capabilitiesOfMount(int openRoot, const VolumeStatistics& volume,
                                 std::string_view typeOnDevice);

}  // namespace hoist::volumes
