// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The main thread waits in sd-event. Other threads reach it through post(): a queue under a lock
// and an eventfd that wakes the loop. Timers are wall-clock ones (CLOCK_REALTIME), because their
// fire dates are dates: when somebody sets the clock, the kernel moves the expiry with it.

#include "platform/RunLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <algorithm>

#include "platform/SystemCall.h"
#include "platform/Trouble.h"

namespace hoist {
namespace {

// sd-event may fire this much late to save wake-ups. Its own default (250 ms) would blur the half
// second to the exit.
constexpr std::uint64_t kTimerAccuracyMicroseconds = 1000;

void check(int result, const char* call) {
  if (result < 0) throw SystemCallError(-result, call, {});
}

std::uint64_t microseconds(Date date) {
  if (date.seconds() < 0) return 0;
  return static_cast<std::uint64_t>(date.seconds()) * 1'000'000 +
         static_cast<std::uint64_t>(date.nanoseconds()) / 1000;
}

struct Watch {
  std::function<void(std::uint32_t)> action;
  static int ready(sd_event_source*, int, std::uint32_t events, void* self) noexcept {
    platform::contain("a descriptor's callback",
                      [&] { static_cast<Watch*>(self)->action(events); });
    return 0;
  }
  static void destroyed(void* self) noexcept { delete static_cast<Watch*>(self); }
};

}  // namespace

Timer::Timer(sd_event* loop, Date fireDate, std::function<void()> action)
    : fireDate_(fireDate), action_(std::move(action)) {
  check(sd_event_add_time(loop, &source_, CLOCK_REALTIME, microseconds(fireDate),
                          kTimerAccuracyMicroseconds, fired, this),
        "sd_event_add_time");
}

Timer::~Timer() {
  invalidate();
}

void Timer::setFireDate(Date date) {
  fireDate_ = date;
  if (source_)
    check(sd_event_source_set_time(source_, microseconds(date)), "sd_event_source_set_time");
}

void Timer::invalidate() {
  source_ = sd_event_source_disable_unref(source_);
}

int Timer::fired(sd_event_source*, std::uint64_t, void* self) noexcept {
  auto timer = static_cast<Timer*>(self);
  // The action may drop the timer, so nothing of it is touched afterwards.
  auto action = std::move(timer->action_);
  timer->invalidate();
  platform::contain("a timer", action);
  return 0;
}

RunLoop& RunLoop::main() {
  static auto& loop = *new RunLoop;
  return loop;
}

RunLoop::RunLoop()
    : wakeup_(systemCall("eventfd", [] { return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); })) {
  check(sd_event_new(&event_), "sd_event_new");
  check(sd_event_add_io(event_, &wakeupSource_, wakeup_.get(), EPOLLIN, posted, this),
        "sd_event_add_io");
}

void RunLoop::run() {
  check(sd_event_loop(event_), "sd_event_loop");
}

void RunLoop::runOnce(std::uint64_t timeoutMicroseconds) {
  check(sd_event_run(event_, timeoutMicroseconds), "sd_event_run");
}

void RunLoop::stop() {
  check(sd_event_exit(event_, 0), "sd_event_exit");
}

void RunLoop::post(std::function<void()> block) {
  bool wasEmpty;
  {
    MutexLock lock(mutex_);
    wasEmpty = posted_.empty();
    posted_.push_back(std::move(block));
  }
  if (wasEmpty) {
    std::uint64_t one = 1;
    // Only a counter about to overflow could refuse, and then the loop is awake anyway.
    [[maybe_unused]] auto written =
        retryInterrupted([&] { return ::write(wakeup_.get(), &one, sizeof one); });
  }
}

int RunLoop::posted(sd_event_source*, int, std::uint32_t, void* self) noexcept {
  static_cast<RunLoop*>(self)->drain();
  return 0;
}

void RunLoop::drain() {
  std::uint64_t count;
  [[maybe_unused]] auto got =
      retryInterrupted([&] { return ::read(wakeup_.get(), &count, sizeof count); });
  std::deque<std::function<void()>> blocks;
  {
    MutexLock lock(mutex_);
    blocks.swap(posted_);
  }
  for (auto& block : blocks) platform::contain("a posted block", block);
}

Ref<Timer> RunLoop::scheduleTimer(Date fireDate, std::function<void()> action) {
  return make<Timer>(event_, fireDate, std::move(action));
}

RunLoop::Source RunLoop::watch(int fd, std::uint32_t events,
                               std::function<void(std::uint32_t)> action) {
  sd_event_source* source = nullptr;
  auto watch = std::make_unique<Watch>(Watch{std::move(action)});
  check(sd_event_add_io(event_, &source, fd, events, Watch::ready, watch.get()), "sd_event_add_io");
  sd_event_source_set_destroy_callback(source, Watch::destroyed);
  watch.release();
  return Source(source, [](sd_event_source* s) { sd_event_source_disable_unref(s); });
}

bool RunLoop::isMainThread() const {
  return ::syscall(SYS_gettid) == ::getpid();
}

}  // namespace hoist
