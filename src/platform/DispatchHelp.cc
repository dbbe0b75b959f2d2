// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/DispatchHelp.h"

#include <sched.h>
#include <unistd.h>

#include <exception>
#include <system_error>

#include "platform/UserIdentity.h"

namespace hoist::dispatch {
namespace {

using platform::UserIdentity;

// The help while it is awaited and while it runs. Held by both sides, because the queue may come to
// it when nobody needs it any more.
class Help {
 public:
  Help(const Block& block, UserIdentity identity) : block_(block), identity_(std::move(identity)) {}

  // On the other thread.
  void run() {
    if (!begin()) return;
    std::exception_ptr failure;
    try {
      block_();
    } catch (...) {
      failure = std::current_exception();
    }
    end(failure);
  }

  // Lets it not begin any more, or waits for its end. Answers what it has thrown.
  std::exception_ptr dismiss() {
    MutexLock lock(mutex_);
    if (state_ == State::Awaited) state_ = State::Ended;
    while (state_ != State::Ended) ended_.wait(mutex_);
    return failure_;
  }

 private:
  enum class State { Awaited, Running, Ended };

  bool begin() {
    // It must find what the caller would have found.
    if (UserIdentity::ofThread() != identity_) return false;
    MutexLock lock(mutex_);
    if (state_ != State::Awaited) return false;
    state_ = State::Running;
    return true;
  }

  void end(const std::exception_ptr& failure) {
    MutexLock lock(mutex_);
    state_ = State::Ended;
    failure_ = failure;
    ended_.notify_all();
  }

  // The caller's: only looked at while the caller cannot return.
  const Block& block_;
  const UserIdentity identity_;
  Mutex mutex_;
  std::condition_variable_any ended_;
  State state_ GUARDED_BY(mutex_) = State::Awaited;
  std::exception_ptr failure_ GUARDED_BY(mutex_);
};

bool hasProcessors() {
  cpu_set_t processors;
  // Fails where there are more than the set has room for.
  return ::sched_getaffinity(0, sizeof processors, &processors) != 0 || CPU_COUNT(&processors) > 1;
}

// A thread with a user's rights must not begin another one, which would inherit them for good.
bool hasRightsOfProcess(const UserIdentity& identity) {
  return identity.user == ::geteuid() && identity.group == ::getegid();
}

}  // namespace

void runWithHelp(const Block& work, const Block& help) {
  if (!hasProcessors()) return work();
  auto identity = UserIdentity::ofThread();
  if (!hasRightsOfProcess(identity)) return work();
  auto helper = make<Help>(help, std::move(identity));
  try {
    globalQueue().async([helper] { helper->run(); });
  } catch (const std::system_error&) {
    // No thread to be had: this one does it all.
  }
  std::exception_ptr failure;
  try {
    work();
  } catch (...) {
    failure = std::current_exception();
  }
  auto helpsFailure = helper->dismiss();
  if (failure || helpsFailure) std::rethrow_exception(failure ? failure : helpsFailure);
}

}  // namespace hoist::dispatch
