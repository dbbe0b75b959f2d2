// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "process/Process.h"

#include <unistd.h>

#include <atomic>

#include "logging/Logger.h"
#include "platform/AssertionHandler.h"
#include "platform/ChildTask.h"
#include "platform/Executable.h"
#include "platform/FacilityLevel.h"
#include "platform/SystemFacts.h"
#include "process/TextPipeReader.h"

namespace hoist {
namespace {

// The last version before each of the releases that have a flag.
constexpr std::uint32_t kBeforeYosemite = 0x0A09FF;
constexpr std::uint32_t kBeforeElCapitan = 0x0A0AFF;
constexpr std::uint32_t kBeforeSierra = 0x0A0BFF;
constexpr std::uint32_t kBeforeHighSierra = 0x0A0CFF;
constexpr std::uint32_t kBeforeMojave = 0x0A0DFF;
constexpr std::uint32_t kBeforeCatalina = 0x0A0EFF;

// What is taken down at the start.
struct Facts {
  std::uint32_t osVersion;
  bool isYosemiteOrLater;
  bool isElCapitanOrLater;
  bool isSierraOrLater;
  bool isHighSierraOrLater;
  bool isMojaveOrLater;
  bool isCatalinaOrLater;
  uid_t userID;
  gid_t groupID;

  static Facts now() {
    const auto system = platform::operatingSystemVersion();
    const std::uint32_t version = packedVersion(system.major, system.minor, system.patch);
    return {.osVersion = version,
            .isYosemiteOrLater = version > kBeforeYosemite,
            .isElCapitanOrLater = version > kBeforeElCapitan,
            .isSierraOrLater = version > kBeforeSierra,
            .isHighSierraOrLater = version > kBeforeHighSierra,
            .isMojaveOrLater = version > kBeforeMojave,
            .isCatalinaOrLater = version > kBeforeCatalina,
            .userID = ::geteuid(),
            .groupID = ::getegid()};
  }
};

Facts& facts() {
  static Facts facts = Facts::now();
  return facts;
}

// Both are set by initialize() again.
std::atomic<bool> sipEnabled = false;
std::atomic<bool> sipDetermined = false;

double secondsPerTick() {
  platform::TickRate rate;
  const int result = platform::getTickRate(rate);
  if (result != 0) {
    failAssertion({"+[Process upTimeInterval]", "Process", __LINE__}, "result == noErr");
  }
  return static_cast<double>(rate.numerator) / rate.denominator / 1e9;
}

std::uint64_t ticks() {
  if (Process::isSierraOrLater()) return platform::continuousApproximateTime();
  return Process::isYosemiteOrLater() ? platform::approximateTime() : platform::absoluteTime();
}

struct Release {
  // The last version that has the name.
  std::uint32_t last;
  const char* name;
};
constexpr Release kReleases[] = {{0x0A03FF, "Panther (or earlier)"},
                                 {0x0A04FF, "Tiger"},
                                 {0x0A05FF, "Leopard"},
                                 {0x0A06FF, "Snow Leopard"},
                                 {0x0A07FF, "Lion"},
                                 {0x0A08FF, "Mountain Lion"},
                                 {0x0A09FF, "Mavericks"},
                                 {0x0A0AFF, "Yosemite"},
                                 {0x0A0BFF, "El Capitan"},
                                 {0x0A0CFF, "Sierra"},
                                 {0x0A0DFF, "High Sierra"},
                                 {0x0A0EFF, "Mojave"},
                                 {0x0A0FFF, "Catalina"}};

}  // namespace

void Process::initialize() {
  facts() = Facts::now();
  sipDetermined = false;
  sipEnabled = false;
}

unsigned Process::cpuCount() {
  return platform::activeProcessorCount();
}

double Process::upTimeInterval() {
  static const double factor = secondsPerTick();
  return static_cast<double>(ticks()) * factor;
}

bool Process::isPrivileged() {
  return ::getuid() == 0;
}

uid_t Process::userID() {
  return facts().userID;
}

gid_t Process::groupID() {
  return facts().groupID;
}

bool Process::isRunningAsUser() {
  return ::geteuid() == userID();
}

bool Process::isRunningAsRoot() {
  return ::geteuid() == 0;
}

// The results of the calls are not looked at: what counts is who the process is afterwards.
bool Process::runAsRoot() {
  facts();  // who it was must be known before it changes
  if (isRunningAsRoot()) return true;
  [[maybe_unused]] int user = ::seteuid(::getuid());
  [[maybe_unused]] int group = ::setegid(::getgid());
  return isRunningAsRoot();
}

bool Process::runAsUser() {
  if (!isRunningAsRoot() || userID() == 0) return true;
  [[maybe_unused]] int user = ::seteuid(userID());
  // Without root's rights by now: allowed because the group is still the saved one.
  [[maybe_unused]] int group = ::setegid(groupID());
  return isRunningAsUser();
}

void Process::setAllowRootUser(bool) {}

std::uint32_t Process::osVersion() {
  return facts().osVersion;
}

std::string Process::readableOSVersion() {
  const std::uint32_t version = osVersion();
  const char* prefix = version < 0x0A0800 ? "Mac OS X " : version < 0x0A0C00 ? "OS X " : "macOS ";
  return prefix + platform::operatingSystemVersionString();
}

std::string Process::osNickname() {
  for (const Release& release : kReleases) {
    if (osVersion() <= release.last) return release.name;
  }
  return "Unknown";
}

bool Process::isOrLaterThanOSVersion(std::uint32_t version, std::uint32_t butBefore) {
  return version <= osVersion() && osVersion() < butBefore;
}

bool Process::isYosemiteOrLater() {
  return facts().isYosemiteOrLater;
}

bool Process::isElCapitanOrLater() {
  return facts().isElCapitanOrLater;
}

bool Process::isSierraOrLater() {
  return facts().isSierraOrLater;
}

bool Process::isHighSierraOrLater() {
  return facts().isHighSierraOrLater;
}

bool Process::isMojaveOrLater() {
  return facts().isMojaveOrLater;
}

bool Process::isCatalinaOrLater() {
  return facts().isCatalinaOrLater;
}

bool Process::isSIPEnabled() {
  if (!isElCapitanOrLater() || sipDetermined) return sipEnabled;
  const std::string tool = platform::executableFolder() + "/csrutil";
  auto reader = make<TextPipeReader>();
  auto task = ChildTask::launch({.launchPath = tool,
                                 .arguments = {"status"},
                                 .standardOutput = reader->pipe().writing.get()});
  reader->startReading();
  const TextPipeReader::Lines& lines = *reader->lines();
  task->waitUntilExit();
  const bool enabled = !lines.empty() && lines.front().find("enabled") != std::string::npos;
  sipEnabled = enabled;
  auto line = Logger::log(classification::Debug, [enabled] {
    return std::string("+[Process isSIPEnabled] SIP status=") + (enabled ? "YES" : "NO");
  });
  Logger::logKeyValue(classification::Debug, line, tool, Value(Array(lines.begin(), lines.end())));
  sipDetermined = true;
  return enabled;
}

}  // namespace hoist
