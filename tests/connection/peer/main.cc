// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The test peer as a process of its own: connection_test_peer RUNTIME-DIRECTORY SERVICE-NAME
// answering|silent. Says "ready" when it listens, and ends when its standard input does. A silent
// one never answers a barrier and says "silent" instead.

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string_view>

#include "connection/TestPeer.h"
#include "platform/xpc/ServiceSocket.h"

int main(int count, char** arguments) {
  if (count != 4) return 2;
  try {
    hoist::xpc::setRuntimeDirectory(arguments[1]);
    std::function<void()> barrierHeld = [] {
      std::puts("silent");
      std::fflush(stdout);
    };
    if (std::string_view(arguments[3]) != "silent") barrierHeld = nullptr;
    hoist::TestPeer peer(hoist::xpc::Listener::initWithMachServiceName(arguments[2]), barrierHeld);
    std::puts("ready");
    std::fflush(stdout);
    char byte;
    while (::read(STDIN_FILENO, &byte, 1) > 0) {
    }
    return 0;
  } catch (const std::exception& exception) {
    std::puts(exception.what());
    return 1;
  }
}
