// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "process/MainQueue.h"

#include <utility>
#include <vector>

#include "platform/RunLoop.h"

namespace hoist {
namespace {

// Belongs to the main thread.
std::vector<Ref<const void>>& pendingReleases() {
  static auto& pending = *new std::vector<Ref<const void>>;
  return pending;
}

void releasePending() {
  auto objects = make<std::vector<Ref<const void>>>(std::exchange(pendingReleases(), {}));
  dispatch::globalQueue(dispatch::Priority::Background).async([objects] { objects->clear(); });
}

}  // namespace

dispatch::Queue& MainQueue() {
  static dispatch::Queue& queue = dispatch::mainQueue();
  return queue;
}

bool IsMainThread() {
  return RunLoop::main().isMainThread();
}

void RunAsyncOnMainQueue(dispatch::Block block) {
  MainQueue().async(std::move(block));
}

void RunSyncOnMainThread(const dispatch::Block& block) {
  if (IsMainThread()) return block();
  MainQueue().sync(block);
}

void RunOnMainThread(dispatch::Block block) {
  if (IsMainThread()) return block();
  RunAsyncOnMainQueue(std::move(block));
}

void ReleaseLaterInBackground(Ref<const void> object) {
  if (!object || !IsMainThread()) return;
  const bool isFirst = pendingReleases().empty();
  pendingReleases().push_back(std::move(object));
  if (isFirst) RunAsyncOnMainQueue(releasePending);
}

}  // namespace hoist
