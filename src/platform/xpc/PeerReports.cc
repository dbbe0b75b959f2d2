// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/PeerReports.h"

#include <fmt/format.h>

#include <chrono>
#include <map>
#include <optional>

#include "platform/Clock.h"
#include "platform/Mutex.h"
#include "platform/Trouble.h"

namespace hoist::xpc {
namespace {

// Picked: what somebody who looks for the cause needs, and no flood.
constexpr unsigned kLinesInWindow = 20;
constexpr std::chrono::seconds kWindow{10};
// Of one line. Picked.
constexpr std::size_t kShownBytes = 500;

class Windows {
 public:
  static Windows& shared() {
    static auto& windows = *new Windows;
    return windows;
  }

  // How many lines were left out before this one; nothing when this one is left out, too.
  std::optional<unsigned> enter(uid_t user) {
    auto now = Clock::instant();
    MutexLock lock(mutex_);
    forgetQuietUsers(now);
    auto& window = windows_.try_emplace(user, Window{now, 0, 0}).first->second;
    if (now - window.begin >= kWindow) window = {now, 0, window.leftOut};
    if (window.lines == kLinesInWindow) {
      ++window.leftOut;
      return std::nullopt;
    }
    ++window.lines;
    return std::exchange(window.leftOut, 0);
  }

 private:
  struct Window {
    Clock::Instant begin;
    unsigned lines;
    unsigned leftOut;
  };

  void forgetQuietUsers(Clock::Instant now) REQUIRES(mutex_) {
    std::erase_if(windows_, [&](const auto& entry) {
      return now - entry.second.begin >= kWindow && entry.second.leftOut == 0;
    });
  }

  Mutex mutex_;
  std::map<uid_t, Window> windows_ GUARDED_BY(mutex_);
};

// It may repeat what the peer sent, which must not look like lines of its own.
std::string shown(std::string_view what) {
  std::string text(what.substr(0, kShownBytes));
  for (char& each : text) {
    if (static_cast<unsigned char>(each) < ' ' || each == '\x7f') each = '?';
  }
  return what.size() > kShownBytes ? text + " ..." : text;
}

}  // namespace

void reportPeer(const Peer& peer, std::string_view what) {
  auto leftOut = Windows::shared().enter(peer.user);
  if (!leftOut) return;
  auto line = fmt::format("connection of {}: {}", peer.description(), shown(what));
  if (*leftOut > 0) line += fmt::format(" (after {} more of this user's)", *leftOut);
  platform::reportTrouble(platform::Severity::Caution, line);
}

}  // namespace hoist::xpc
