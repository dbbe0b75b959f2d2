// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/volumes/VolumeRecords.h"

namespace hoist::volumes {

// What this very mount can do: the table of types, corrected by what the file system says where
// asking costs next to nothing (the geometry of xfs, what ext4 shows in /sys), by the options of
// the mount and by its being read-only. Without an open root (-1), what can be known without it.
Capabilities capabilitiesOfMount(int openRoot, const VolumeStatistics& volume);

}  // namespace hoist::volumes
