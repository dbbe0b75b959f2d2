// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/ChainRelease.h"

#include <vector>

#include "filesystem/PXFileInfo.h"
#include "platform/Dispatch.h"
#include "platform/Mutex.h"

namespace hoist {
namespace {

constexpr std::size_t kInitialRoom = 8;

class PendingReleases {
 public:
  PendingReleases() { pending_.reserve(kInitialRoom); }

  void add(Ref<PXFileInfo> object) {
    SpinLockHolder lock(lock_);
    pending_.push_back(std::move(object));
    if (draining_) return;
    draining_ = true;
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
    for (;;) {
      Ref<PXFileInfo> object;
      {
        SpinLockHolder lock(lock_);
        if (pending_.empty()) {
          draining_ = false;
          return;
        }
        object = std::move(pending_.back());
        pending_.pop_back();
      }
      // Goes away here, outside the lock, and adds the next one of its chain.
    }
  }

  SpinLock lock_;
  std::vector<Ref<PXFileInfo>> pending_ GUARDED_BY(lock_);
  bool draining_ GUARDED_BY(lock_) = false;
};

}  // namespace

void releaseInBackground(Ref<PXFileInfo> object) noexcept {
  // The first object let go makes it; a process without memory for that has no way on.
  static auto& pending = *new PendingReleases;  // NOLINT(bugprone-unhandled-exception-at-new)
  pending.add(std::move(object));
}

}  // namespace hoist
