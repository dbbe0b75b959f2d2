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

  // What the connection holds from now on, in place of what it held. Answers whether its user may
  // hold so much; if not, that is reported, and the connection has to end.
  bool holdUnfinished(std::size_t bytes);
  bool holdUnread(std::size_t bytes);
  bool holdDescriptors(std::size_t descriptors);

  const Peer& peer() const { return peer_; }
  const Limits& limits() const { return limits_; }

 private:
  bool holdBytes(std::size_t& mine, std::size_t bytes);

  const Peer peer_;
  const bool isHelper_;
  const Limits limits_;
  bool authenticated_ = false;
  // Guarded by the lock of the accounts.
  std::size_t unfinished_ = 0;
  std::size_t unread_ = 0;
  std::size_t descriptors_ = 0;
};

}  // namespace hoist::xpc
