// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/volumes/FileSystemAttributes.h"

#include <cerrno>

#include "platform/FilePaths.h"
#include "platform/volumes/VolumeCalls.h"

namespace hoist::volumes {

FileSystemAttributes attributesOfFileSystemForPath(const char* path) {
  VolumeStatistics volume;
  if (VolumeCalls::current().statfs(path, volume) != 0) {
    int error = errno;
    return {std::nullopt, Error::posix(error, stringFromFileSystemRepresentation(path))};
  }
  return {Dictionary{{kFileSystemSize, volume.totalBlocks * volume.blockSize},
                     {kFileSystemFreeSize, volume.availableBlocks * volume.blockSize},
                     {kFileSystemNodes, volume.totalFiles},
                     {kFileSystemFreeNodes, volume.freeFiles},
                     {kFileSystemNumber, volume.filesystemID.device}},
          nullptr};
}

}  // namespace hoist::volumes
