// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/ioctl.h>

#include <cstdint>
#include <optional>

namespace hoist::volumes {

// The first version of the geometry that xfs answers (fs/xfs/libxfs/xfs_fs.h, which is not among
// the kernel's installed headers).
struct XFSGeometry {
  std::uint32_t sizes[8];
  std::uint64_t counts[4];
  std::uint8_t uuid[16];
  std::uint32_t sunit;
  std::uint32_t swidth;
  std::int32_t version;
  std::uint32_t flags;
  std::uint32_t sectors[3];
  std::uint32_t padding;
};
static_assert(sizeof(XFSGeometry) == 112);

// Nothing when the open root is none of xfs.
inline std::optional<XFSGeometry> xfsGeometry(int openRoot) {
  constexpr unsigned long kRequest = _IOR('X', 100, XFSGeometry);
  XFSGeometry geometry{};
  if (::ioctl(openRoot, kRequest, &geometry) != 0) return std::nullopt;
  return geometry;
}

inline bool xfsClones(int openRoot) {
  constexpr std::uint32_t kReflink = 1 << 20;
  auto geometry = xfsGeometry(openRoot);
  return geometry && (geometry->flags & kReflink) != 0;
}

}  // namespace hoist::volumes
