// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>

#include "platform/Clock.h"
#include "platform/Mutex.h"
#include "values/Ref.h"

namespace hoist::dispatch {

using Block = std::function<void()>;

// Runs blocks asynchronously. A block that throws is reported and ends; the queue goes on. Safe
// from any thread.
class Queue {
 public:
  virtual ~Queue();
  virtual void async(Block block) = 0;
  // Runs the block not before the delay has passed.
  virtual void after(std::chrono::nanoseconds delay, Block block) = 0;
  // Keeps a serial queue alive; the others are permanent.
  virtual Ref<Queue> hold();
  // Runs the block and waits for its end; an exception of the block reaches the caller. Deadlocks
  // when called from a block of the same serial queue.
  void sync(const Block& block);
};

// The main thread's queue; it needs a running main run loop.
Queue& mainQueue();

// The concurrent queues: an elastic pool that adds a thread when all are busy or blocked, so that a
// blocked job never starves another one. Idle threads end after a few seconds.
enum class Priority { Default, Background };
Queue& globalQueue(Priority priority = Priority::Default);

// A serial queue over the default global queue: one block at a time, in order.
Ref<Queue> makeSerialQueue();

// The queue whose block is running on this thread: the main queue on the main thread, the default
// global queue on a thread that belongs to no queue.
Queue& currentQueue();
// The same, for later: a serial queue lives as long as the handle.
Ref<Queue> holdCurrentQueue();

// Makes the given queue the current one on this thread while the object lives; for threads that are
// queues themselves.
class CurrentQueueScope {
 public:
  explicit CurrentQueueScope(Queue& queue);
  ~CurrentQueueScope();
  CurrentQueueScope(const CurrentQueueScope&) = delete;
  CurrentQueueScope& operator=(const CurrentQueueScope&) = delete;

  // The queue of this thread's innermost scope; null outside of any.
  static Queue* innermost();

 private:
  Queue* previous_;
};

// Counts blocks under way. Held by Ref, because blocks may outlive the wait.
class Group : public std::enable_shared_from_this<Group> {
 public:
  void async(Queue& queue, Block block);
  // Answers whether all blocks ended before the timeout (by Clock).
  bool wait(std::chrono::nanoseconds timeout);

 private:
  void leave();

  Mutex mutex_;
  std::condition_variable_any empty_;
  std::size_t running_ GUARDED_BY(mutex_) = 0;
};

}  // namespace hoist::dispatch
