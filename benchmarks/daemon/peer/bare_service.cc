// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The limit: takes the passed socket, sends back every byte of the one connection.

#include <sys/socket.h>
#include <unistd.h>

int main() {
  constexpr int kPassedSocket = 3;
  const int connection = ::accept4(kPassedSocket, nullptr, nullptr, SOCK_CLOEXEC);
  char byte = 0;
  while (::read(connection, &byte, 1) == 1) {
    if (::write(connection, &byte, 1) != 1) break;
  }
  return 0;
}
