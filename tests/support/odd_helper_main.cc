// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A helper that misbehaves in the way that its command names. It knows nothing but the four lines
// and the three bytes.

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "probe_state.h"

namespace {

int answer(const char* text) {
  std::fputs(text, stdout);
  std::fflush(stdout);
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  std::string version, service, command, flags;
  std::getline(std::cin, version);
  std::getline(std::cin, service);
  std::getline(std::cin, command);
  std::getline(std::cin, flags);
  if (command == "exit") return 0;
  if (command == "silent") return ::pause();
  if (command == "short") return answer("OK");
  if (command == "refuse") return answer("NO\n  this helper refuses \n");
  if (command == "badver") return answer("NO\nBADVER Helper-1.0");
  if (command == "chatty") {
    while (answer("NO\nand so on, and so on, and so on\n") == 0 && !std::ferror(stdout)) continue;
    return 1;
  }
  if (command == "lines") {
    // Everything that it was told, for a test to read in the refusal.
    std::string told = version + "|" + service + "|" + command + "|" + flags;
    return answer(("NO\n" + told).c_str());
  }
  if (command == "state") {
    // What it sees of itself.
    std::fputs("NO\n", stdout);
    probe::printState(stdout, count, arguments);
    return 0;
  }
  // Accepts, and never couples.
  answer("OK\n");
  return ::pause();
}
