// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/FacilityLevel.h"

#include <atomic>

namespace hoist {
namespace {

std::atomic<std::uint32_t> level = packedVersion(10, 15, 7);

}  // namespace

std::uint32_t facilityLevel() {
  return level;
}

FacilityLevelOverride::FacilityLevelOverride(std::uint32_t newLevel)
    : previous_(level.exchange(newLevel)) {}

FacilityLevelOverride::~FacilityLevelOverride() {
  level = previous_;
}

}  // namespace hoist
