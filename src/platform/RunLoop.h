// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <deque>
#include <functional>

#include "platform/FileDescriptor.h"
#include "platform/Mutex.h"
#include "values/Date.h"
#include "values/Ref.h"

struct sd_event;
struct sd_event_source;

namespace hoist {

// A one-shot timer whose fire date can be moved. Belongs to the main thread.
class Timer {
 public:
  // Internal; made by RunLoop::scheduleTimer.
  Timer(sd_event* loop, Date fireDate, std::function<void()> action);
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  // By the wall clock.
  Date fireDate() const { return fireDate_; }
  void setFireDate(Date date);
  // False once it has fired or was invalidated.
  bool isValid() const { return source_ != nullptr; }
  void invalidate();

 private:
  static int fired(sd_event_source* source, std::uint64_t time, void* self) noexcept;

  sd_event_source* source_ = nullptr;
  Date fireDate_;
  std::function<void()> action_;
};

// The run loop of the main thread, on sd-event. Everything but post() belongs to the main thread;
// post() is safe from any thread, also before the loop runs. No exception leaves a callback: it is
// reported and the loop goes on.
class RunLoop {
 public:
  static RunLoop& main();

  // Runs until stop().
  void run();
  // Handles what is due now, or waits for the first event for at most the given number of
  // microseconds.
  void runOnce(std::uint64_t timeoutMicroseconds);
  void stop();

  // Runs the block on the main thread, in the order of posting.
  void post(std::function<void()> block);

  // The timer lives as long as somebody holds it; dropping it cancels it.
  Ref<Timer> scheduleTimer(Date fireDate, std::function<void()> action);

  // Calls the action whenever the (borrowed) descriptor is ready for the epoll events; the source
  // ends with the handle.
  using Source = std::shared_ptr<sd_event_source>;
  Source watch(int fd, std::uint32_t events, std::function<void(std::uint32_t)> action);

  bool isMainThread() const;
  sd_event* event() { return event_; }

 private:
  RunLoop();
  static int posted(sd_event_source* source, int fd, std::uint32_t events, void* self) noexcept;
  void drain();

  sd_event* event_ = nullptr;
  FileDescriptor wakeup_;
  sd_event_source* wakeupSource_ = nullptr;
  Mutex mutex_;
  std::deque<std::function<void()>> posted_ GUARDED_BY(mutex_);
};

}  // namespace hoist
