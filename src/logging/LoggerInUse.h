// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "logging/Logger.h"

namespace hoist {

// The default logger for the length of one call. Each thread keeps the one it used last, so that a
// line takes no lock and counts no reference that other threads count too. It is taken out of its
// place for the call: whoever replaces the logger in the midst of it does not destroy it under it.
class LoggerInUse {
 public:
  LoggerInUse();
  ~LoggerInUse();
  LoggerInUse(const LoggerInUse&) = delete;
  LoggerInUse& operator=(const LoggerInUse&) = delete;

  Logger* operator->() const { return logger_.get(); }

  // Lets the calling thread's logger go.
  static void forget();

 private:
  struct Kept {
    Ref<Logger> logger;
    std::uint64_t generation = 0;
    ~Kept() { threadEnds_ = true; }
  };
  static thread_local Kept kept_;
  // Something may still be logged when the thread's other objects are destroyed.
  static thread_local bool threadEnds_;

  Ref<Logger> logger_;
  const std::uint64_t generation_;
};
}  // namespace hoist
