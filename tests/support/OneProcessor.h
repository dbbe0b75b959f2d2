// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sched.h>

#include <cstddef>
#include <stdexcept>

namespace hoist {

inline int processorsOfThisThread() {
  cpu_set_t processors;
  return ::sched_getaffinity(0, sizeof processors, &processors) == 0 ? CPU_COUNT(&processors) : 1;
}

// The calling thread has one processor while this lives.
class OneProcessor {
 public:
  OneProcessor() {
    if (::sched_getaffinity(0, sizeof before_, &before_) != 0) fail();
    cpu_set_t one;
    CPU_ZERO(&one);
    std::size_t first = 0;
    while (!CPU_ISSET(first, &before_)) ++first;
    CPU_SET(first, &one);
    if (::sched_setaffinity(0, sizeof one, &one) != 0) fail();
  }
  ~OneProcessor() { ::sched_setaffinity(0, sizeof before_, &before_); }
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;

 private:
  static void fail() { throw std::runtime_error("cannot choose a processor"); }
  cpu_set_t before_;
};

}  // namespace hoist
