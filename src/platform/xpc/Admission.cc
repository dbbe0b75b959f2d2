// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// One account a user, over all listeners of the process. An account exists as long as the user has
// a connection, so what is kept is bounded by the number of connections.

#include "platform/xpc/Admission.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>

#include "platform/xpc/PeerReports.h"

namespace hoist::xpc {
namespace {

struct Account {
  std::size_t connections = 0;  // those that count
  std::size_t helpers = 0;      // those that do not
  std::size_t unauthenticated = 0;
  std::size_t bytes = 0;
  std::size_t descriptors = 0;
  bool refused = false;  // reported, and none was admitted since
};

struct Accounts {
  Mutex mutex;
  std::map<uid_t, Account> users GUARDED_BY(mutex);
  std::size_t unprivileged GUARDED_BY(mutex) = 0;  // connections of all users but root
  std::size_t unauthenticated GUARDED_BY(mutex) = 0;
  bool refused GUARDED_BY(mutex) = false;  // the same for a bound of all users

  static Accounts& shared() {
    static auto& accounts = *new Accounts;
    return accounts;
  }
};

// A process with few descriptors has room for fewer connections: root's share, and as much for the
// work itself, stays free.
std::size_t unprivilegedLimit() {
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return kConnectionsOfAllUsers;
  std::size_t usable = limit.rlim_cur > 2 * kReservedForRoot
                           ? static_cast<std::size_t>(limit.rlim_cur) - 2 * kReservedForRoot
                           : 1;
  return std::min(kConnectionsOfAllUsers, usable);
}

// A bound that is reached, in words.
std::optional<std::string> reached(std::size_t used, std::size_t limit, const char* what,
                                   const char* constant) {
  if (used < limit) return std::nullopt;
  return fmt::format("refused, {} {} are open and at most {} may be ({} in xpc/Limits.h)", used,
                     what, limit, constant);
}

std::optional<std::string> userRefusal(const Account& account, bool isHelper) {
  if (isHelper) return std::nullopt;
  if (auto text = reached(account.connections, kConnectionsOfOneUser, "connections of this user",
                          "kConnectionsOfOneUser"))
    return text;
  return reached(account.unauthenticated, kUnauthenticatedOfOneUser,
                 "connections of this user that have not authenticated",
                 "kUnauthenticatedOfOneUser");
}

std::optional<std::string> generalRefusal(const Accounts& accounts, const Peer& peer, bool isHelper)
    REQUIRES(accounts.mutex) {
  if (isHelper || peer.user == 0) return std::nullopt;
  if (auto text = reached(accounts.unprivileged, unprivilegedLimit(), "connections of all users",
                          "kConnectionsOfAllUsers"))
    return text;
  return reached(accounts.unauthenticated, kUnauthenticatedOfAllUsers,
                 "connections of all users that have not authenticated",
                 "kUnauthenticatedOfAllUsers");
}

}  // namespace

Ref<Admission> Admission::admit(const Peer& peer, bool isHelper, const Limits& limits) {
  auto& accounts = Accounts::shared();
  std::optional<std::string> refusal;
  bool reported = false;
  {
    MutexLock lock(accounts.mutex);
    auto found = accounts.users.find(peer.user);
    bool* flag = &accounts.refused;
    refusal = generalRefusal(accounts, peer, isHelper);
    if (!refusal && found != accounts.users.end()) {
      flag = &found->second.refused;
      refusal = userRefusal(found->second, isHelper);
    }
    if (refusal) {
      reported = std::exchange(*flag, true);
    } else {
      auto& account = accounts.users[peer.user];
      account.refused = accounts.refused = false;
      ++(isHelper ? account.helpers : account.connections);
      ++account.unauthenticated;
      ++accounts.unauthenticated;
      if (!isHelper && peer.user != 0) ++accounts.unprivileged;
    }
  }
  if (!refusal) return make<Admission>(peer, isHelper, limits);
  if (!reported) reportPeer(peer, *refusal);
  return nullptr;
}

Admission::~Admission() {
  authenticated();
  auto& accounts = Accounts::shared();
  MutexLock lock(accounts.mutex);
  auto found = accounts.users.find(peer_.user);
  auto& account = found->second;
  account.bytes -= unfinished_ + unread_;
  account.descriptors -= descriptors_;
  --(isHelper_ ? account.helpers : account.connections);
  if (!isHelper_ && peer_.user != 0) --accounts.unprivileged;
  if (account.connections + account.helpers == 0) accounts.users.erase(found);
}

void Admission::authenticated() {
  auto& accounts = Accounts::shared();
  MutexLock lock(accounts.mutex);
  if (std::exchange(authenticated_, true)) return;
  --accounts.users[peer_.user].unauthenticated;
  --accounts.unauthenticated;
}

bool Admission::holdUnfinished(std::size_t bytes) {
  return holdBytes(unfinished_, bytes);
}
bool Admission::holdUnread(std::size_t bytes) {
  return holdBytes(unread_, bytes);
}

bool Admission::holdBytes(std::size_t& mine, std::size_t bytes) {
  auto& accounts = Accounts::shared();
  std::size_t total;
  bool more;
  {
    MutexLock lock(accounts.mutex);
    auto& account = accounts.users[peer_.user];
    more = bytes > mine;
    account.bytes = account.bytes - mine + bytes;
    mine = bytes;
    total = account.bytes;
  }
  if (!more || total <= limits_.heldBytesOfOneUser) return true;
  reportPeer(peer_,
             fmt::format("closed, {} bytes of unfinished messages and unread answers of this "
                         "user wait and at most {} may (kHeldBytesOfOneUser in "
                         "xpc/Limits.h)",
                         total, limits_.heldBytesOfOneUser));
  return false;
}

bool Admission::holdDescriptors(std::size_t descriptors) {
  auto& accounts = Accounts::shared();
  std::size_t total;
  bool more;
  {
    MutexLock lock(accounts.mutex);
    auto& account = accounts.users[peer_.user];
    more = descriptors > descriptors_;
    account.descriptors = account.descriptors - descriptors_ + descriptors;
    descriptors_ = descriptors;
    total = account.descriptors;
  }
  if (!more || total <= kDescriptorsOfOneUser) return true;
  reportPeer(peer_, fmt::format("closed, {} descriptors of this user are held and at most {} may "
                                "be (kDescriptorsOfOneUser in xpc/Limits.h)",
                                total, kDescriptorsOfOneUser));
  return false;
}

}  // namespace hoist::xpc
