// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <optional>
#include <vector>

#include "exceptions/KLException.h"
#include "platform/Clock.h"
#include "platform/Mutex.h"

namespace hoist::example {

// A pretend job: it takes a given time, during which it can be held, paused, resumed and cancelled
// like a real one. Safe from any thread.
class Job : public std::enable_shared_from_this<Job> {
 public:
  // What it produces is asked for once, on its own thread, when its time is over; it ends with the
  // exception that this throws.
  Job(std::chrono::nanoseconds length, std::function<void()> produce)
      : length_(length), produce_(std::move(produce)), left_(length) {}

  struct State {
    bool running = false;
    bool finished = false;
    bool held = false;
    bool paused = false;
    double progress = 0;  // from 0 to 1
  };
  State state() const;
  // What ended it other than the passing of its time; nothing while it runs.
  std::optional<KLException> exception() const;

  // Starts it, once; the completion, if any, is called when it has ended, at once if it has.
  void run(std::function<void()> completion);
  // While it is held it makes no progress.
  void hold();
  void releaseHold();
  // No progress for that long, or until it is resumed.
  void pauseFor(std::chrono::nanoseconds duration);
  void resume();
  // Ends it with the exception "Cancel"; also before it was started.
  void cancel();

 private:
  void work();
  std::optional<KLException> resultOfProducing() const;
  std::chrono::nanoseconds leftNow() const REQUIRES(mutex_);
  void finish(std::optional<KLException> exception) REQUIRES(mutex_);
  bool isPaused() const REQUIRES(mutex_) {
    return pausedUntil_ && Clock::instant() < *pausedUntil_;
  }

  const std::chrono::nanoseconds length_;
  const std::function<void()> produce_;

  mutable Mutex mutex_;
  std::condition_variable_any changed_;
  std::chrono::nanoseconds left_ GUARDED_BY(mutex_);
  // Since when it has been advancing, if it is.
  std::optional<Clock::Instant> advancingSince_ GUARDED_BY(mutex_);
  bool running_ GUARDED_BY(mutex_) = false;
  bool finished_ GUARDED_BY(mutex_) = false;
  bool held_ GUARDED_BY(mutex_) = false;
  bool cancelled_ GUARDED_BY(mutex_) = false;
  unsigned changes_ GUARDED_BY(mutex_) = 0;
  std::optional<Clock::Instant> pausedUntil_ GUARDED_BY(mutex_);
  std::optional<KLException> exception_ GUARDED_BY(mutex_);
  std::vector<std::function<void()>> completions_ GUARDED_BY(mutex_);
};

}  // namespace hoist::example
