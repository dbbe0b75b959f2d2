// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/CouplingTurns.h"

#include <utility>

namespace hoist {

CouplingTurns::Turn::Turn(Turn&& other) noexcept : turns_(std::exchange(other.turns_, nullptr)) {}

CouplingTurns::Turn::~Turn() {
  if (turns_) turns_->end();
}

CouplingTurns::Turn CouplingTurns::take(uid_t user) {
  MutexLock lock(mutex_);
  auto me = waiters_.insert(waiters_.end(), Waiter{user});
  while (user_ || next() != &*me) changed_.wait(mutex_);
  waiters_.erase(me);
  user_ = user;
  latest_[user] = ++turnsTaken_;
  return Turn(*this);
}

std::optional<uid_t> CouplingTurns::user() const {
  MutexLock lock(mutex_);
  return user_;
}

std::size_t CouplingTurns::waiting() const {
  MutexLock lock(mutex_);
  return waiters_.size();
}

const CouplingTurns::Waiter* CouplingTurns::next() const {
  const Waiter* first = nullptr;
  std::uint64_t firstsLatest = 0;
  for (const Waiter& waiter : waiters_) {
    auto found = latest_.find(waiter.user);
    std::uint64_t latest = found == latest_.end() ? 0 : found->second;
    if (first && latest >= firstsLatest) continue;
    first = &waiter;
    firstsLatest = latest;
  }
  return first;
}

void CouplingTurns::end() {
  MutexLock lock(mutex_);
  user_.reset();
  changed_.notify_all();
}

}  // namespace hoist
