// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "platform/Mutex.h"

namespace hoist {

// The backtraces that were written, each under a tag, so that one is written in full only once.
// Safe to use from any thread.
class BacktraceCache {
 public:
  struct Entry {
    // The sum of the addresses, or the next free number after it.
    std::uint64_t tag;
    // Whether the backtrace was not known before.
    bool isNew;
  };
  Entry tag(const std::vector<std::uintptr_t>& addresses);
  void flush();

 private:
  Mutex lock_;
  std::unordered_map<std::uint64_t, std::vector<std::uintptr_t>> tagged_ GUARDED_BY(lock_);
  // How many were asked for again since the cache was emptied for that reason.
  unsigned repeated_ GUARDED_BY(lock_) = 0;
};

}  // namespace hoist
