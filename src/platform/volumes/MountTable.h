// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace hoist::volumes {

// One line of the mount table. Paths are bytes.
struct Mount {
  std::uint64_t id = 0;  // the kernel's; used again when the mount is gone
  std::string source;
  std::string mountPoint;
  // The folder of the file system that is mounted: "/", or a part of it.
  std::string root;
  dev_t device = 0;  // one number for all mounts of the file system
  std::string type;
  // Not meant to be seen in a file browser: the kernel's own file systems, and what is mounted with
  // x-gvfs-hide.
  bool hidden = false;
  // On this machine, not on a network.
  bool local = true;
  // The options of the file system, comma-separated.
  std::string options;
};

// The mounts that this process can see, in the order in which they were mounted. Throws
// SystemCallError when the table cannot be read. Safe from any thread.
std::vector<Mount> readMountTable();

}  // namespace hoist::volumes
