// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// "identity" changes its effective user to and fro and prints after each step what it answered and
// the IDs of all its threads; "sip" asks twice for the system integrity and prints the answers and
// what was logged.
#include <fmt/format.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "platform/Dispatch.h"
#include "process/Process.h"
#include "support/RecordingLogger.h"

namespace hoist {
namespace {

constexpr int kThreads = 4;

// A change of the user interrupts the sleep of every thread.
[[noreturn]] void sleepForEver() {
  for (;;) ::pause();
}

// A line of status(5), as the kernel writes it for one thread: real, effective, saved, file system.
std::string identity(const std::filesystem::path& thread, std::string_view key) {
  std::ifstream status(thread / "status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(key)) continue;
    for (char& c : line) c = c == '\t' ? ' ' : c;
    return line;
  }
  return {};
}

void print(const char* step, bool answer) {
  std::set<std::string> identities;
  int threads = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    identities.insert(identity(thread.path(), "Uid:") + " " + identity(thread.path(), "Gid:"));
    ++threads;
  }
  fmt::print("{} {}{}{}{}", step, answer ? "yes" : "no",
             Process::isPrivileged() ? " privileged" : "",
             Process::isRunningAsRoot() ? " root" : "", Process::isRunningAsUser() ? " user" : "");
  for (const std::string& each : identities) fmt::print(" [{}]", each);
  fmt::print("{}\n", threads > kThreads ? "" : " too few threads");
}

int changeIdentity() {
  Process::initialize();
  for (int i = 0; i < kThreads; ++i) std::thread(sleepForEver).detach();
  dispatch::globalQueue().async(sleepForEver);
  print("start", true);
  print("runAsUser", Process::runAsUser());
  print("runAsRoot", Process::runAsRoot());
  print("runAsRoot", Process::runAsRoot());
  print("runAsUser", Process::runAsUser());
  std::fflush(stdout);
  ::_exit(0);
}

int askForIntegrity() {
  LogRecorder log;
  for (int i = 0; i < 2; ++i) fmt::print("{}\n", Process::isSIPEnabled() ? "YES" : "NO");
  for (const LoggedLine& line : log.lines()) {
    fmt::print("{} {}\n", static_cast<int>(line.classification), line.text);
  }
  return 0;
}

}  // namespace
}  // namespace hoist

int main(int count, char** arguments) {
  if (count != 2) return 2;
  return std::strcmp(arguments[1], "sip") == 0 ? hoist::askForIntegrity() : hoist::changeIdentity();
}
