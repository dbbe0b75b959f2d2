// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/ChainRelease.h"

#include <vector>

#include "filesystem/PXFileInfo.h"
#include "platform/Dispatch.h"
#include "platform/Mutex.h"
#include "platform/Scoped.h"

namespace hoist {
namespace {

constexpr std::size_t kInitialRoom = 8;

using Objects = std::vector<Ref<PXFileInfo>>;

// What this thread is just letting go of, if it is the one that does: the rest of a chain goes
// here, without the lock.
thread_local Objects* draining = nullptr;

class PendingReleases {
 public:
  PendingReleases() { pending_.reserve(kInitialRoom); }

  void add(Ref<PXFileInfo> object) {
    SpinLockHolder lock(lock_);
    pending_.push_back(std::move(object));
    if (isScheduled_) return;
    isScheduled_ = true;
    lock.unlock();
    schedule();
  }

 private:
  void schedule() {
    try {
      dispatch::globalQueue(dispatch::Priority::Background).async([this] { drain(); });
    } catch (...) {
      // No thread to be had: this one does the work.
      drain();
    }
  }

  void drain() {
    Objects objects;
    while (takeAll(objects)) {
      platform::Scoped here(draining, &objects);
      while (!objects.empty()) {
        auto object = std::move(objects.back());
        objects.pop_back();
        // Goes away here and adds the next one of its chain.
      }
    }
  }

  bool takeAll(Objects& objects) {
    SpinLockHolder lock(lock_);
    objects.swap(pending_);
    isScheduled_ = !objects.empty();
    return isScheduled_;
  }

  SpinLock lock_;
  Objects pending_ GUARDED_BY(lock_);
  bool isScheduled_ GUARDED_BY(lock_) = false;
};

}  // namespace

void releaseInBackground(Ref<PXFileInfo> object) noexcept {
  if (draining) return draining->push_back(std::move(object));
  // The first object let go makes it; a process without memory for that has no way on.
  static auto& pending = *new PendingReleases;  // NOLINT(bugprone-unhandled-exception-at-new)
  pending.add(std::move(object));
}

}  // namespace hoist
