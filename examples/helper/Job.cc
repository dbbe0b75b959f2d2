// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "Job.h"

#include <algorithm>

#include "platform/Dispatch.h"

namespace hoist::example {
namespace {

// Longer waits are cut into these, so that no arithmetic with the clock can overflow.
constexpr std::chrono::hours kLongestWait{1};

}  // namespace

Job::State Job::state() const {
  MutexLock lock(mutex_);
  double left = length_.count() > 0
                    ? static_cast<double>(leftNow().count()) / static_cast<double>(length_.count())
                    : 0;
  return {.running = running_,
          .finished = finished_,
          .held = held_,
          .paused = isPaused(),
          .progress = std::clamp(1 - left, 0.0, 1.0)};
}

std::optional<KLException> Job::exception() const {
  MutexLock lock(mutex_);
  return exception_;
}

void Job::run(std::function<void()> completion) {
  MutexLock lock(mutex_);
  if (finished_) {
    lock.unlock();
    if (completion) completion();
    lock.lock();
    return;
  }
  if (completion) completions_.push_back(std::move(completion));
  if (running_) return;
  running_ = true;
  dispatch::globalQueue().async([self = shared_from_this()] { self->work(); });
}

void Job::hold() {
  MutexLock lock(mutex_);
  held_ = true;
  ++changes_;
  changed_.notify_all();
}

void Job::releaseHold() {
  MutexLock lock(mutex_);
  held_ = false;
  ++changes_;
  changed_.notify_all();
}

void Job::pauseFor(std::chrono::nanoseconds duration) {
  MutexLock lock(mutex_);
  pausedUntil_ = Clock::instant() +
                 std::clamp<std::chrono::nanoseconds>(duration, {}, std::chrono::hours(24 * 365));
  ++changes_;
  changed_.notify_all();
}

void Job::resume() {
  MutexLock lock(mutex_);
  pausedUntil_.reset();
  ++changes_;
  changed_.notify_all();
}

void Job::cancel() {
  MutexLock lock(mutex_);
  if (finished_) return;
  cancelled_ = true;
  ++changes_;
  changed_.notify_all();
  if (!running_) finish(KLException::exceptionWithName("Cancel", "cancelled before it was run"));
}

void Job::work() {
  bool cancelled = false;
  {
    MutexLock lock(mutex_);
    while (!cancelled_ && left_.count() > 0) {
      auto start = Clock::instant();
      bool advancing = !held_ && !isPaused();
      if (advancing) advancingSince_ = start;
      auto wait =
          std::min<std::chrono::nanoseconds>(advancing ? left_ : kLongestWait, kLongestWait);
      if (!held_ && pausedUntil_ && isPaused())
        wait = std::min<std::chrono::nanoseconds>(wait, *pausedUntil_ - start);
      unsigned seen = changes_;
      Clock::waitUntil(changed_, mutex_, start + wait,
                       [&]() NO_THREAD_SAFETY_ANALYSIS { return changes_ != seen; });
      left_ = leftNow();
      advancingSince_.reset();
    }
    cancelled = cancelled_;
  }
  auto exception = cancelled ? KLException::exceptionWithName("Cancel", "cancelled by its client")
                             : resultOfProducing();
  std::vector<std::function<void()>> completions;
  {
    MutexLock lock(mutex_);
    finish(std::move(exception));
    completions.swap(completions_);
  }
  for (auto& completion : completions) completion();
}

std::optional<KLException> Job::resultOfProducing() const {
  try {
    if (produce_) produce_();
    return std::nullopt;
  } catch (const KLException& exception) {
    return exception;
  } catch (const std::exception& exception) {
    return KLException::exceptionWithName("Bug", exception.what());
  }
}

std::chrono::nanoseconds Job::leftNow() const {
  return advancingSince_ ? left_ - (Clock::instant() - *advancingSince_) : left_;
}

void Job::finish(std::optional<KLException> exception) {
  running_ = false;
  finished_ = true;
  exception_ = std::move(exception);
}

}  // namespace hoist::example
