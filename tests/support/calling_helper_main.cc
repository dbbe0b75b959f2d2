// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A helper that connects to the hoist whenever a test says so, and gives it the connections. Its
// flag is the path of the test's socket. An order is one byte, and so is its answer:
//   o   connects by itself; the connection comes with the answer
//   c   has a child connect, which then waits; the same
//   e   ends the latest child, whose end it does not collect
// For the command "refuse" it refuses the launch first, and lives on.

#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

namespace {

int newSocket() {
  return ::socket(AF_UNIX, SOCK_STREAM, 0);
}

bool connectTo(int socket, const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return ::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

bool answer(int test, int descriptor) {
  char byte = 0;
  iovec data{&byte, 1};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof descriptor)] = {};
  msghdr message{};
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  if (descriptor >= 0) {
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
  }
  return ::sendmsg(test, &message, MSG_NOSIGNAL) == 1;
}

// Answers the child, or -1 when it could not connect. It does not outlive this process.
pid_t connectInChild(int socket, const std::string& path) {
  int ends[2];
  if (::pipe(ends) != 0) return -1;
  pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (connectTo(socket, path) && ::write(ends[1], "", 1) == 1) ::pause();
    ::_exit(1);
  }
  ::close(ends[1]);
  char byte;
  bool isConnected = ::read(ends[0], &byte, 1) == 1;
  ::close(ends[0]);
  return isConnected ? child : -1;
}

void endUncollected(pid_t child) {
  siginfo_t end;
  ::kill(child, SIGKILL);
  ::waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOWAIT);
}

}  // namespace

int main() {
  std::string version, service, command, flag;
  std::getline(std::cin, version);
  std::getline(std::cin, service);
  std::getline(std::cin, command);
  std::getline(std::cin, flag);
  bool refuses = command == "refuse";
  if (::write(STDOUT_FILENO, refuses ? "NO\n" : "OK\n", 3) != 3) return 1;
  // The end of the explanation.
  if (refuses) ::close(STDOUT_FILENO);

  int test = newSocket();
  if (!connectTo(test, flag)) return 1;
  const char* hoist = std::getenv("KLHELPER_PARENT_XPC_SERVICE_NAME");
  std::string path = std::string("/run/kelvo/") + (hoist ? hoist : "");
  pid_t child = -1;
  for (char order; ::read(test, &order, 1) == 1;) {
    int connection = order == 'e' ? -1 : newSocket();
    if (order == 'o' && !connectTo(connection, path)) return 1;
    if (order == 'c' && (child = connectInChild(connection, path)) < 0) return 1;
    if (order == 'e') endUncollected(child);
    if (!answer(test, connection)) return 1;
    ::close(connection);
  }
}
