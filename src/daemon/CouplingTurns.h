// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <optional>

#include "platform/Mutex.h"

namespace hoist {

// The order in which launches couple with their helpers, one at a time: the next is the one whose
// user has waited longest for a turn of his, whatever number of launches others have waiting. So a
// user whose helpers never answer holds up another's launch by one of them, not by all. Safe from
// any thread.
class CouplingTurns {
 public:
  // Held by a launch until its coupling is over.
  class Turn {
   public:
    Turn(Turn&& other) noexcept;
    Turn& operator=(Turn&&) = delete;
    ~Turn();

   private:
    friend class CouplingTurns;
    explicit Turn(CouplingTurns& turns) : turns_(&turns) {}
    CouplingTurns* turns_;
  };

  // Waits, without a limit; it ends because each of the turns before does.
  Turn take(uid_t user);

  // Whose launch has its turn; nothing when nobody's has.
  std::optional<uid_t> user() const;

  // How many launches wait.
  std::size_t waiting() const;

 private:
  struct Waiter {
    uid_t user;
  };

  const Waiter* next() const REQUIRES(mutex_);
  void end();

  mutable Mutex mutex_;
  std::condition_variable_any changed_;
  std::optional<uid_t> user_ GUARDED_BY(mutex_);
  // In the order in which they came.
  std::list<Waiter> waiters_ GUARDED_BY(mutex_);
  std::uint64_t turnsTaken_ GUARDED_BY(mutex_) = 0;
  // The number of each user's latest turn.
  std::map<uid_t, std::uint64_t> latest_ GUARDED_BY(mutex_);
};

}  // namespace hoist
