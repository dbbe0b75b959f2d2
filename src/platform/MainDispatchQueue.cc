// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What the run loop takes part in is apart from the other queues, so that a program that has no run
// loop (a helper, mostly) is linked without it and need not load the library that it stands on.

#include "platform/Dispatch.h"
#include "platform/RunLoop.h"

namespace hoist::dispatch {
namespace {

class MainQueue final : public Queue {
 public:
  void async(Block block) override { RunLoop::main().post(std::move(block)); }
  void after(std::chrono::nanoseconds delay, Block block) override {
    globalQueue().after(delay,
                        [this, block = std::move(block)]() mutable { async(std::move(block)); });
  }
};

}  // namespace

Queue& mainQueue() {
  static auto& queue = *new MainQueue;
  return queue;
}

Queue& currentQueue() {
  if (auto* queue = CurrentQueueScope::innermost()) return *queue;
  return RunLoop::main().isMainThread() ? mainQueue() : globalQueue();
}

Ref<Queue> holdCurrentQueue() {
  return currentQueue().hold();
}

}  // namespace hoist::dispatch
