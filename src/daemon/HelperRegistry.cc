// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A helper is known by its process identifier. That is safe because the identifier cannot be used
// again before the helper's end has been collected, and the entry goes away in the same step that
// collects it.

#include "daemon/HelperRegistry.h"

#include <sys/epoll.h>

#include <optional>
#include <utility>

#include "platform/Dispatch.h"
#include "platform/ProcessParent.h"
#include "platform/xpc/Limits.h"

namespace hoist {
namespace {

// A helper's own children are few generations deep; this only bounds the climb.
constexpr int kMaximumGenerations = 64;

}  // namespace

HelperRegistry& HelperRegistry::shared() {
  static auto& registry = *new HelperRegistry;
  return registry;
}

HelperRegistry::Place::Place(Place&& other) noexcept
    : registry_(std::exchange(other.registry_, nullptr)), user_(other.user_) {}

HelperRegistry::Place::~Place() {
  if (registry_) registry_->leavePlace(user_);
}

HelperRegistry::Place HelperRegistry::takePlace(uid_t user) {
  MutexLock lock(mutex_);
  std::size_t& taken = places_[user];
  if (taken >= xpc::kHelpersOfOneUser) return Place(nullptr, user);
  ++taken;
  return Place(this, user);
}

void HelperRegistry::leavePlace(uid_t user) {
  MutexLock lock(mutex_);
  if (--places_[user] == 0) places_.erase(user);
}

void HelperRegistry::add(Ref<ChildTask> helper, Place place) {
  pid_t process = helper->processIdentifier();
  {
    MutexLock lock(mutex_);
    helpers_.emplace(process, Entry{std::move(helper), std::move(place), nullptr});
  }
  dispatch::mainQueue().async([this, process] { watch(process); });
}

void HelperRegistry::watch(pid_t helper) {
  MutexLock lock(mutex_);
  auto found = helpers_.find(helper);
  if (found == helpers_.end()) return;
  Entry& entry = found->second;
  entry.watch = RunLoop::main().watch(entry.task->pidfd(), EPOLLIN,
                                      [this, helper](std::uint32_t) { ended(helper); });
}

void HelperRegistry::ended(pid_t helper) {
  // Destroyed outside the lock, which giving up the place takes again.
  std::optional<Entry> gone;
  MutexLock lock(mutex_);
  auto found = helpers_.find(helper);
  if (found == helpers_.end() || !found->second.task->hasExited()) return;
  gone.emplace(std::move(found->second));
  helpers_.erase(found);
  lock.unlock();
  gone.reset();
  lock.lock();
}

std::optional<uid_t> HelperRegistry::userOfHelper(pid_t process) const {
  for (int generation = 0; generation < kMaximumGenerations && process > 1; ++generation) {
    {
      MutexLock lock(mutex_);
      auto found = helpers_.find(process);
      if (found != helpers_.end()) return found->second.place.user();
    }
    process = platform::parentOfProcess(process);
  }
  return std::nullopt;
}

bool HelperRegistry::isHelperOf(pid_t process, uid_t user) const {
  MutexLock lock(mutex_);
  auto found = helpers_.find(process);
  return found != helpers_.end() && found->second.place.user() == user;
}

std::size_t HelperRegistry::count() const {
  MutexLock lock(mutex_);
  return helpers_.size();
}

}  // namespace hoist
