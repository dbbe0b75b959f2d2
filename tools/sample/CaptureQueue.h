// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <deque>
#include <optional>

#include "platform/Mutex.h"
#include "sample/Capture.h"

namespace hoist::sample {

// The way from the tracer to the unwinder. Safe from any thread.
class CaptureQueue {
 public:
  // Never blocks: the tracer has stopped threads to let go.
  void put(Capture capture);
  // No more will come.
  void close();
  // Waits; nothing once the queue is closed and empty.
  std::optional<Capture> take();

  // True while so many bytes wait that the tracer should pause (64 MiB, picked).
  bool isFull();

 private:
  static constexpr std::size_t kFullBytes = 64 * 1024 * 1024;

  Mutex mutex_;
  std::condition_variable_any changed_;
  std::deque<Capture> waiting_ GUARDED_BY(mutex_);
  std::size_t bytes_ GUARDED_BY(mutex_) = 0;
  bool closed_ GUARDED_BY(mutex_) = false;
};

}  // namespace hoist::sample
