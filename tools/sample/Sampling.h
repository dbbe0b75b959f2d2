// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sample/CallGraph.h"
#include "sample/MemoryMap.h"
#include "sample/Tracer.h"
#include "values/Date.h"

namespace hoist::sample {

// A finished sampling: everything that a report says. All texts are fit for printing.
struct Sampling {
  struct LoadedImage {
    ImageRange range;
    std::string name;
    std::string buildID;
    std::string path;
  };

  pid_t process = 0;
  pid_t parent = 0;
  std::string name;
  std::string path;
  Date started;
  // When the sampling began.
  Date date;
  std::chrono::nanoseconds wishedInterval{};
  std::chrono::nanoseconds sampled{};
  std::uint64_t samples = 0;
  TraceResult::End end = TraceResult::End::TimeIsUp;
  bool followedAllThreads = true;
  // Owns what the graphs point to.
  std::shared_ptr<Functions> functions = std::make_shared<Functions>();
  std::vector<ThreadGraph> threads;
  std::vector<LoadedImage> images;

  // Of all threads.
  std::uint64_t stackCount() const {
    std::uint64_t count = 0;
    for (const ThreadGraph& thread : threads) count += thread.graph.root().total;
    return count;
  }
};

}  // namespace hoist::sample
