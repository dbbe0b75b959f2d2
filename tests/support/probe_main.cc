// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Prints what it sees of itself, or does what its first argument says: "exit N", "cat", "sleep".

#include <unistd.h>

#include "probe_state.h"

int main(int count, char** arguments) {
  if (count > 2 && std::strcmp(arguments[1], "exit") == 0) return std::atoi(arguments[2]);
  if (count > 1 && std::strcmp(arguments[1], "sleep") == 0) return ::pause();
  if (count > 1 && std::strcmp(arguments[1], "cat") == 0) {
    for (int c; (c = std::getchar()) != EOF;) std::putchar(c);
    return 0;
  }
  probe::printState(stdout, count, arguments);
}
