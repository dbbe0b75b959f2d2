// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/PendingCalls.h"

#include "platform/xpc/Limits.h"

namespace hoist::xpc {

bool PendingCalls::add(std::uint32_t serial, PendingCall call) {
  MutexLock lock(mutex_);
  if (calls_.size() >= kOutstandingCalls) return false;
  return calls_.emplace(serial, std::move(call)).second;
}

std::optional<PendingCall> PendingCalls::take(std::uint32_t serial) {
  MutexLock lock(mutex_);
  auto found = calls_.extract(serial);
  return found ? std::optional(std::move(found.mapped())) : std::nullopt;
}

std::vector<PendingCall> PendingCalls::takeAll() {
  MutexLock lock(mutex_);
  std::vector<PendingCall> all;
  for (auto& [serial, call] : calls_) all.push_back(std::move(call));
  calls_.clear();
  return all;
}

}  // namespace hoist::xpc
