// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// To close a Unix socket closes the descriptors in messages that were not received, and among these
// may be a TCP socket that lingers until its data is taken: an hour, if its maker likes. One queue
// for them would be a queue behind him, a thread for each would be his to multiply. But nothing
// lingers for a thread that is about to end. So the sockets go to a thread with a descriptor table
// of its own that holds nothing else; once this table has let go of them, that thread ends, and its
// table with it.
//
// A descriptor that was received is another matter: closing one of a file system that its sender
// serves waits for his answer, in whatever thread.

#include "platform/xpc/Disposal.h"

#include <linux/close_range.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <latch>
#include <memory>
#include <utility>
#include <vector>

#include "platform/Dispatch.h"
#include "platform/Mutex.h"
#include "platform/Thread.h"
#include "platform/Trouble.h"

namespace hoist::xpc {
namespace {

using Sockets = std::vector<FileDescriptor>;

// The hand-over from the table that all threads share to the one of the thread that ends.
struct Handover {
  explicit Handover(Sockets those) : sockets(std::move(those)) {}
  Sockets sockets;
  std::latch taken{1};
  std::latch left{1};
};

// Gives this thread an empty table and takes the sockets, by number, from the shared one. Called
// past the C library, where a sanitizer would note that the process' own descriptors are closed.
// Where the kernel refuses (a sandbox), nothing is taken.
void takeIntoOwnTable(const Sockets& sockets) {
  if (::syscall(SYS_close_range, 0U, ~0U, CLOSE_RANGE_UNSHARE) != 0) return;
  auto process = ::syscall(SYS_pidfd_open, ::getpid(), 0);
  for (const auto& socket : sockets) ::syscall(SYS_pidfd_getfd, process, socket.get(), 0);
}

void closeInEndingThread(Sockets sockets) {
  auto handover = std::make_shared<Handover>(std::move(sockets));
  startDetachedThread("closing", [handover] {
    takeIntoOwnTable(handover->sockets);
    handover->taken.count_down();
    handover->left.wait();
  });
  handover->taken.wait();
  handover->sockets.clear();
  handover->left.count_down();
}

class Undertaker {
 public:
  static Undertaker& shared() {
    static auto& undertaker = *new Undertaker;
    return undertaker;
  }

  void add(FileDescriptor socket) {
    {
      MutexLock lock(mutex_);
      waiting_.push_back(std::move(socket));
      if (std::exchange(isBusy_, true)) return;
    }
    dispatch::globalQueue().async([this] { run(); });
  }

 private:
  void run() {
    for (auto sockets = next(); !sockets.empty(); sockets = next()) {
      platform::contain("closing sockets", [&] { closeInEndingThread(std::move(sockets)); });
    }
  }

  // All that wait; nothing ends the work.
  Sockets next() {
    MutexLock lock(mutex_);
    isBusy_ = !waiting_.empty();
    return std::exchange(waiting_, {});
  }

  Mutex mutex_;
  Sockets waiting_ GUARDED_BY(mutex_);
  bool isBusy_ GUARDED_BY(mutex_) = false;
};

}  // namespace

void closeUnread(FileDescriptor socket) {
  Undertaker::shared().add(std::move(socket));
}

void closeElsewhere(Ref<dbus::FileDescriptors> descriptors) {
  static auto& queue = *new Ref<dispatch::Queue>(dispatch::makeSerialQueue());
  queue->async([descriptors = std::move(descriptors)]() mutable { descriptors.reset(); });
}

}  // namespace hoist::xpc
