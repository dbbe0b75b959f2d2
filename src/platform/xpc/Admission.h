// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include "platform/Mutex.h"
#include "platform/xpc/Limits.h"
#include "platform/xpc/Peer.h"
#include "values/Ref.h"

namespace hoist::xpc {

// An accepted connection's place among the connections of its user and of all users, and what it
// holds of this process' memory and descriptors; given back when it goes. Safe to use from any
// thread.
class Admission {
 public:
  // A place for a connection that has not authenticated yet, or null when a bound is reached; that
  // is reported once until a connection of the user is admitted again.
  static Ref<Admission> admit(const Peer& peer, bool isHelper, const Limits& limits);
  // For use by admit().
  Admission(const Peer& peer, bool isHelper, const Limits& limits)
      : peer_(peer), isHelper_(isHelper), limits_(limits) {}
  ~Admission();
  Admission(const Admission&) = delete;
  Admission& operator=(const Admission&) = delete;

  void authenticated();

  // What the connection holds from now on, in place of what it held: unfinished messages that came
  // in, answers that were not yet read. Answers whether its user may hold so much; if not, that is
  // reported, and the connection has to end.
  struct Held {
    std::size_t bytes = 0;
    std::size_t descriptors = 0;
    friend bool operator==(const Held&, const Held&) = default;
  };
  bool holdUnfinished(Held held) { return hold(unfinished_, held); }
  bool holdUnread(Held held) { return hold(unread_, held); }

  const Peer& peer() const { return peer_; }
  const Limits& limits() const { return limits_; }

 private:
  bool hold(Held& mine, Held held);

  const Peer peer_;
  const bool isHelper_;
  const Limits limits_;
  bool authenticated_ = false;
  // Guarded by the lock of the accounts.
  Held unfinished_;
  Held unread_;
};

}  // namespace hoist::xpc
