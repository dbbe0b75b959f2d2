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
  Admission::Held held;
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
  if (isHelper) {
    return reached(account.helpers, kConnectionsOfOneUsersHelpers,
                   "connections of this user's helpers", "kConnectionsOfOneUsersHelpers");
  }
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
      if (!isHelper) {
        ++account.unauthenticated;
        ++accounts.unauthenticated;
        if (peer.user != 0) ++accounts.unprivileged;
      }
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
  account.held.bytes -= unfinished_.bytes + unread_.bytes;
  account.held.descriptors -= unfinished_.descriptors + unread_.descriptors;
  --(isHelper_ ? account.helpers : account.connections);
  if (!isHelper_ && peer_.user != 0) --accounts.unprivileged;
  if (account.connections + account.helpers == 0) accounts.users.erase(found);
}

void Admission::authenticated() {
  auto& accounts = Accounts::shared();
  MutexLock lock(accounts.mutex);
  if (std::exchange(authenticated_, true) || isHelper_) return;
  --accounts.users[peer_.user].unauthenticated;
  --accounts.unauthenticated;
}

bool Admission::hold(Held& mine, Held held) {
  auto& accounts = Accounts::shared();
  Held before, total;
  {
    MutexLock lock(accounts.mutex);
    auto& account = accounts.users[peer_.user];
    before = std::exchange(mine, held);
    account.held.bytes += held.bytes - before.bytes;
    account.held.descriptors += held.descriptors - before.descriptors;
    total = account.held;
  }
  // Giving back is always allowed.
  if (held.bytes > before.bytes && total.bytes > limits_.heldBytesOfOneUser) {
    bool isHelpers = limits_.heldBytesOfOneUser == kHelperHeldBytesOfOneUser;
    reportPeer(peer_, fmt::format("closed, {} bytes of unfinished messages and unread answers of "
                                  "this user wait and at most {} may ({} in xpc/Limits.h)",
                                  total.bytes, limits_.heldBytesOfOneUser,
                                  isHelpers ? "kHelperHeldBytesOfOneUser" : "kHeldBytesOfOneUser"));
    return false;
  }
  if (held.descriptors > before.descriptors && total.descriptors > kDescriptorsOfOneUser) {
    reportPeer(peer_, fmt::format("closed, {} descriptors of this user are held and at most {} may "
                                  "be (kDescriptorsOfOneUser in xpc/Limits.h)",
                                  total.descriptors, kDescriptorsOfOneUser));
    return false;
  }
  return true;
}

}  // namespace hoist::xpc
