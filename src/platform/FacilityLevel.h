// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace hoist {

// A version of the original platform, packed as (major << 16) | (minor << 8) | patch.
constexpr std::uint32_t packedVersion(unsigned major, unsigned minor, unsigned patch = 0) {
  return (major << 16) | (minor << 8) | patch;
}

// The version of the original platform whose calls this one supplies: 10.15.7, unless a test sets
// another. What depends on a version of the system asks this. Safe from any thread.
std::uint32_t facilityLevel();

// Another level while it lives. For tests; one at a time.
class FacilityLevelOverride {
 public:
  explicit FacilityLevelOverride(std::uint32_t level);
  ~FacilityLevelOverride();
  FacilityLevelOverride(const FacilityLevelOverride&) = delete;
  FacilityLevelOverride& operator=(const FacilityLevelOverride&) = delete;

 private:
  std::uint32_t previous_;
};

}  // namespace hoist
