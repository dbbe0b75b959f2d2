// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Two pools, one a priority. A block is handed to an idle thread, or to a new one when there is
// none: the pool is as large as the number of jobs that run or wait at the same time. Blocks with a
// delay sleep in an ordered list that one idle thread of the pool watches.

#include "platform/Dispatch.h"

#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <deque>
#include <exception>
#include <map>
#include <system_error>

#include "platform/SystemCall.h"
#include "platform/Thread.h"
#include "platform/Trouble.h"

namespace hoist::dispatch {
namespace {

// How long an idle thread waits for work before it ends. Picked: long enough for bursts, short
// enough to be forgotten.
constexpr std::chrono::seconds kIdleLife{5};
// Nice value of background work, that of "renice" for batch jobs.
constexpr int kBackgroundNice = 10;

thread_local Queue* current = nullptr;

class Pool final : public Queue {
 public:
  explicit Pool(Priority priority) : priority_(priority) {}

  void async(Block block) override {
    MutexLock lock(mutex_);
    ready_.push_back(std::move(block));
    wakeOrAddThread();
  }

  void after(std::chrono::nanoseconds delay, Block block) override {
    MutexLock lock(mutex_);
    delayed_.emplace(Clock::instant() + delay, std::move(block));
    ++delays_;
    wakeOrAddThread();
  }

 private:
  void wakeOrAddThread() REQUIRES(mutex_) {
    // Every ready block has a thread of its own coming for it; a delayed one needs some thread to
    // watch the clock.
    if (idle_ >= ready_.size() + (delayed_.empty() ? 0 : 1)) {
      work_.notify_one();
      return;
    }
    try {
      startDetachedThread(priority_ == Priority::Background ? "background" : "global",
                          [this] { runThread(); });
      ++idle_;
    } catch (const std::system_error&) {
      // No more threads can be had: the ones that run take the block when they are done; without
      // any there is no hope.
      if (threads_ + idle_ == 0) throw;
      work_.notify_one();
    }
  }

  void runThread() {
    if (priority_ == Priority::Background) {
      ::setpriority(PRIO_PROCESS, static_cast<id_t>(::syscall(SYS_gettid)), kBackgroundNice);
    }
    CurrentQueueScope scope(*this);
    MutexLock lock(mutex_);
    ++threads_;
    for (;;) {
      promoteDue();
      if (!ready_.empty()) {
        Block block = std::move(ready_.front());
        ready_.pop_front();
        --idle_;
        // This thread may have been the one that watched the delayed blocks.
        if (!delayed_.empty() && idle_ == 0) wakeOrAddThread();
        lock.unlock();
        platform::contain("a block of a global queue", block);
        block = nullptr;
        lock.lock();
        ++idle_;
        continue;
      }
      auto deadline = Clock::instant() + kIdleLife;
      if (!delayed_.empty())
        deadline = std::max(std::min(deadline, delayed_.begin()->first), Clock::instant());
      // A delay that was added meanwhile may be due before this one: look again.
      auto delays = delays_;
      bool woken = Clock::waitUntil(
          work_, mutex_, deadline,
          [this, delays]() NO_THREAD_SAFETY_ANALYSIS { return hasWork() || delays != delays_; });
      if (!woken && delayed_.empty()) break;
    }
    --idle_;
    --threads_;
  }

  bool hasWork() const REQUIRES(mutex_) {
    return !ready_.empty() || (!delayed_.empty() && delayed_.begin()->first <= Clock::instant());
  }

  void promoteDue() REQUIRES(mutex_) {
    auto now = Clock::instant();
    while (!delayed_.empty() && delayed_.begin()->first <= now) {
      ready_.push_back(std::move(delayed_.begin()->second));
      delayed_.erase(delayed_.begin());
    }
    // More than this thread can take at once: others help.
    if (ready_.size() > 1) wakeOrAddThread();
  }

  const Priority priority_;
  Mutex mutex_;
  std::condition_variable_any work_;
  std::deque<Block> ready_ GUARDED_BY(mutex_);
  std::multimap<Clock::Instant, Block> delayed_ GUARDED_BY(mutex_);
  std::size_t delays_ GUARDED_BY(mutex_) = 0;  // ever added
  std::size_t idle_ GUARDED_BY(mutex_) = 0;    // threads that wait, or that are about to
  std::size_t threads_ GUARDED_BY(mutex_) = 0;
};

class SerialQueue final : public Queue, public std::enable_shared_from_this<SerialQueue> {
 public:
  void async(Block block) override {
    MutexLock lock(mutex_);
    blocks_.push_back(std::move(block));
    if (!running_) {
      running_ = true;
      globalQueue().async([self = shared_from_this()] { self->drain(); });
    }
  }

  void after(std::chrono::nanoseconds delay, Block block) override {
    globalQueue().after(delay, [self = shared_from_this(), block = std::move(block)]() mutable {
      self->async(std::move(block));
    });
  }

  Ref<Queue> hold() override { return shared_from_this(); }

 private:
  void drain() {
    CurrentQueueScope scope(*this);
    MutexLock lock(mutex_);
    while (!blocks_.empty()) {
      Block block = std::move(blocks_.front());
      blocks_.pop_front();
      lock.unlock();
      platform::contain("a block of a serial queue", block);
      block = nullptr;
      lock.lock();
    }
    running_ = false;
  }

  Mutex mutex_;
  std::deque<Block> blocks_ GUARDED_BY(mutex_);
  bool running_ GUARDED_BY(mutex_) = false;
};

}  // namespace

Queue::~Queue() = default;

Ref<Queue> Queue::hold() {
  return Ref<Queue>(Ref<void>(), this);
}

void Queue::sync(const Block& block) {
  struct Outcome {
    Mutex mutex;
    std::condition_variable_any done;
    bool finished GUARDED_BY(mutex) = false;
    std::exception_ptr failure GUARDED_BY(mutex);
  };
  auto outcome = make<Outcome>();
  async([outcome, &block] {
    std::exception_ptr failure;
    try {
      block();
    } catch (...) {
      failure = std::current_exception();
    }
    MutexLock lock(outcome->mutex);
    outcome->finished = true;
    outcome->failure = failure;
    outcome->done.notify_all();
  });
  MutexLock lock(outcome->mutex);
  while (!outcome->finished) outcome->done.wait(outcome->mutex);
  if (outcome->failure) std::rethrow_exception(outcome->failure);
}

Queue& globalQueue(Priority priority) {
  static auto& normal = *new Pool(Priority::Default);
  static auto& background = *new Pool(Priority::Background);
  return priority == Priority::Background ? background : normal;
}

Ref<Queue> makeSerialQueue() {
  return make<SerialQueue>();
}

CurrentQueueScope::CurrentQueueScope(Queue& queue) : previous_(current) {
  current = &queue;
}
CurrentQueueScope::~CurrentQueueScope() {
  current = previous_;
}

Queue* CurrentQueueScope::innermost() {
  return current;
}

void Group::async(Queue& queue, Block block) {
  {
    MutexLock lock(mutex_);
    ++running_;
  }
  queue.async([self = shared_from_this(), block = std::move(block)]() mutable {
    platform::contain("a block of a group", block);
    block = nullptr;
    self->leave();
  });
}

bool Group::wait(std::chrono::nanoseconds timeout) {
  MutexLock lock(mutex_);
  return Clock::waitUntil(empty_, mutex_, Clock::instant() + timeout,
                          [this]() NO_THREAD_SAFETY_ANALYSIS { return running_ == 0; });
}

void Group::leave() {
  MutexLock lock(mutex_);
  if (--running_ == 0) empty_.notify_all();
}

}  // namespace hoist::dispatch
