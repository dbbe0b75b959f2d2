// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "logging/BacktraceCache.h"

#include <numeric>

namespace hoist {
namespace {

// So often a known backtrace is only referred to; then all are written anew, near to where a reader
// of the log looks.
constexpr unsigned kMaximumRepeated = 1000;

}  // namespace

BacktraceCache::Entry BacktraceCache::tag(const std::vector<std::uintptr_t>& addresses) {
  std::uint64_t tag = std::accumulate(addresses.begin(), addresses.end(), std::uint64_t{0});
  MutexLock lock(lock_);
  for (;; ++tag) {
    auto found = tagged_.find(tag);
    if (found == tagged_.end()) break;
    if (found->second != addresses) continue;
    if (++repeated_ > kMaximumRepeated) {
      tagged_.clear();
      repeated_ = 0;
    }
    return {tag, false};
  }
  tagged_.emplace(tag, addresses);
  return {tag, true};
}

void BacktraceCache::flush() {
  MutexLock lock(lock_);
  tagged_.clear();
}

}  // namespace hoist
