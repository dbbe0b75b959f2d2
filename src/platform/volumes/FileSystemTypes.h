// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>

namespace hoist::volumes {

// What file systems of a type can do unless the mount itself says otherwise.
struct FileSystemType {
  std::string_view name;     // as in the mount table
  std::int64_t magic;        // as statfs has it; 0 for a type that shares another one's
  std::uint32_t format;      // VOL_CAP_FMT_ bits
  std::uint32_t interfaces;  // VOL_CAP_INT_ bits
  // Whether owners are kept for each item.
  bool ownership;
  // Bits that a file's size can have; 0 to leave it to pathconf.
  unsigned fileSizeBits;
};

// The table's line for a type, for "fuse" and all its kinds the same, for "fuseblk" likewise; a
// cautious line, named "unknown", for a type that is not in it.
const FileSystemType& fileSystemType(std::string_view name);
// The same by what statfs calls it.
const FileSystemType& fileSystemTypeOfMagic(std::int64_t magic);

// Bits of a file's size at the path, as pathconf knows them, corrected where it does not know the
// file system; 0 for an error.
long fileSizeBits(const char* path);

}  // namespace hoist::volumes
