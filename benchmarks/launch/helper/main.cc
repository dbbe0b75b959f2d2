// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The helper that everything here starts. For the hoist it is a helper like any other; with the
// path of a plain socket as its argument it does the same things without the hoist: four lines in,
// "OK\n" out, a descriptor to be reached by over the socket.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "connection/protocols/KLComponentMessaging.h"
#include "helper/HelperTool.h"
#include "values/product.h"

namespace hoist {
namespace {

constexpr unsigned kLifeTime = 20;  // seconds; nobody needs it for longer, whatever happens

class Service : public KLComponentMessaging {
  void barrierWithCompletion(xpc::Reply<> completion) override { completion(); }
};

// Whoever has started it keeps its input open until the endpoint has been handed over.
void waitForTheEndOfInput() {
  char byte = 0;
  while (::read(STDIN_FILENO, &byte, 1) > 0) {
  }
}

int runForTheHoist() {
  auto tool = HelperTool::start(product::kHelperVersion);
  if (!tool) return 1;
  tool->serve(make<Service>(),
              xpc::Interface::interfaceWithProtocol(klComponentMessagingProtocol()));
  if (!tool->couple()) return 1;
  tool->accept();
  waitForTheEndOfInput();
  return 0;
}

// Sends one descriptor in a one-byte message.
bool sendDescriptor(int socket, int fd) {
  char byte = 'E';
  iovec data = {&byte, 1};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr message = {};
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  cmsghdr* header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
  return ::sendmsg(socket, &message, 0) == 1;
}

int runBare(const char* path) {
  if (!HelperInvocation::read(STDIN_FILENO)) return 1;
  if (::write(STDOUT_FILENO, "OK\n", 3) != 3) return 1;
  int endpoint[2];
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, endpoint) != 0) return 1;
  const int parent = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  if (::connect(parent, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return 1;
  if (!sendDescriptor(parent, endpoint[1])) return 1;
  waitForTheEndOfInput();
  return 0;
}

}  // namespace
}  // namespace hoist

int main(int argc, char** argv) {
  ::alarm(hoist::kLifeTime);
  return argc > 1 ? hoist::runBare(argv[1]) : hoist::runForTheHoist();
}
