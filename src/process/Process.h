// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace hoist {

// Answers questions about the running process and the operating system, and changes the effective
// user between root and the one that the process began with. Versions are packed as (major << 16) |
// (minor << 8) | patch.
//
// Safe from any thread, initialize() apart.
class Process {
 public:
  Process() = delete;

  // Takes down the version of the system and the effective IDs. The first use of the class does so
  // by itself; a test does it again after it has changed one of them, while nobody else looks.
  static void initialize();

  // The processors that this process may run on.
  static unsigned cpuCount();
  // One more than the processors where there are few: somebody always waits for a disk.
  static unsigned optimalConcurrentQueueSize() { return optimalConcurrentQueueSize(cpuCount()); }
  static constexpr unsigned optimalConcurrentQueueSize(unsigned cpuCount) {
    return cpuCount < 5 ? cpuCount + 1 : cpuCount;
  }
  // Seconds since the start of the system, the time asleep included.
  static double upTimeInterval();

  // Whether the real user is root.
  static bool isPrivileged();
  // The effective IDs at the start.
  static uid_t userID();
  static gid_t groupID();
  static bool isRunningAsUser();
  static bool isRunningAsRoot();
  // Make the real user and group the effective ones, and those of the start again. They answer
  // whether the effective user is now as wished; the effective IDs of every thread change.
  static bool runAsRoot();
  static bool runAsUser();
  // Accepted for the sake of old callers; does nothing.
  static void setAllowRootUser(bool allow);

  static std::uint32_t osVersion();
  // "macOS Version 10.15.7 (...)"
  static std::string readableOSVersion();
  // "Catalina"
  static std::string osNickname();
  // isOrLaterThanOSVersion:butBeforeOSVersion:
  static bool isOrLaterThanOSVersion(std::uint32_t version, std::uint32_t butBefore);
  static bool isTigerOrLater() { return true; }
  static bool isLeopardOrLater() { return true; }
  static bool isSnowLeopardOrLater() { return true; }
  static bool isLionOrLater() { return true; }
  static bool isMountainLionOrLater() { return true; }
  static bool isMavericksOrLater() { return true; }
  static bool isYosemiteOrLater();
  static bool isElCapitanOrLater();
  static bool isSierraOrLater();
  static bool isHighSierraOrLater();
  static bool isMojaveOrLater();
  static bool isCatalinaOrLater();

  // Whether the system protects itself from root. Asks a tool, beside the program's executable, at
  // the first call; two first calls at once may both ask. Throws SystemCallError when the tool
  // cannot be started.
  static bool isSIPEnabled();
};

}  // namespace hoist
