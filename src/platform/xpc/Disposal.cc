// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// To close a descriptor that somebody else has made may take as long as he likes: a TCP socket
// lingers until its data is taken, a file of a file system that he serves waits for his answer. To
// close a Unix socket does the same to the descriptors in messages that were not received. So a
// thread that serves everybody closes nothing that comes from a peer; whoever makes this side wait
// waits behind himself.

#include "platform/xpc/Disposal.h"

#include <deque>
#include <map>
#include <utility>

#include "platform/Dispatch.h"
#include "platform/Mutex.h"

namespace hoist::xpc {
namespace {

class Disposal {
 public:
  static Disposal& shared() {
    static auto& disposal = *new Disposal;
    return disposal;
  }

  void add(uid_t user, Ref<void> things) {
    {
      MutexLock lock(mutex_);
      auto [queue, isNew] = queues_.try_emplace(user);
      queue->second.push_back(std::move(things));
      if (!isNew) return;
    }
    dispatch::globalQueue().async([this, user] { run(user); });
  }

 private:
  void run(uid_t user) {
    while (auto things = next(user)) things.reset();
  }

  // Nothing, and no queue, when all is done.
  Ref<void> next(uid_t user) {
    MutexLock lock(mutex_);
    auto queue = queues_.find(user);
    if (queue->second.empty()) {
      queues_.erase(queue);
      return nullptr;
    }
    auto things = std::move(queue->second.front());
    queue->second.pop_front();
    return things;
  }

  Mutex mutex_;
  std::map<uid_t, std::deque<Ref<void>>> queues_ GUARDED_BY(mutex_);  // of users with a thread
};

}  // namespace

void letGoElsewhere(uid_t user, Ref<void> things) {
  Disposal::shared().add(user, std::move(things));
}

}  // namespace hoist::xpc
