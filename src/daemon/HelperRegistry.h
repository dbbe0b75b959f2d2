// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <optional>

#include "platform/ChildTask.h"
#include "platform/Mutex.h"
#include "platform/RunLoop.h"

namespace hoist {

// The helpers that this process has started and that still run. It collects each one's end in the
// main run loop, so that none becomes a zombie, and tells helpers from other callers. Safe from any
// thread.
class HelperRegistry {
 public:
  static HelperRegistry& shared();

  // One of a user's xpc::kHelpersOfOneUser places, held from before the start until the helper ends
  // or the launch fails.
  class Place {
   public:
    Place(Place&& other) noexcept;
    Place& operator=(Place&&) = delete;
    ~Place();
    // Whether there was a place to be had.
    explicit operator bool() const { return registry_ != nullptr; }
    uid_t user() const { return user_; }

   private:
    friend class HelperRegistry;
    Place(HelperRegistry* registry, uid_t user) : registry_(registry), user_(user) {}
    HelperRegistry* registry_;
    uid_t user_;
  };
  Place takePlace(uid_t user);

  // Keeps the started helper, and its place, until it ends.
  void add(Ref<ChildTask> helper, Place place);

  // Whether the process was started by add()ed launches or descends from one that was.
  bool isHelper(pid_t process) const { return userOfHelper(process).has_value(); }
  // For whom; nothing for another process.
  std::optional<uid_t> userOfHelper(pid_t process) const;
  // Whether the process is a helper that was started for the user.
  bool isHelperOf(pid_t process, uid_t user) const;

  std::size_t count() const;

 private:
  struct Entry {
    Ref<ChildTask> task;
    Place place;
    RunLoop::Source watch;
  };

  void watch(pid_t helper);
  void ended(pid_t helper);
  void leavePlace(uid_t user);

  mutable Mutex mutex_;
  std::map<pid_t, Entry> helpers_ GUARDED_BY(mutex_);
  std::map<uid_t, std::size_t> places_ GUARDED_BY(mutex_);
};

}  // namespace hoist
