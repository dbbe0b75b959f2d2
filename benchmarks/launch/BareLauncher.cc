// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <string_view>

#include "launch/Ways.h"
#include "platform/SystemCall.h"

namespace hoist::bench {
namespace {

constexpr std::string_view kHandshake = "Helper-2.2.5.12\nhelper.capture.1\ncapture\nverbose\n";
constexpr int kPatience = 10'000;  // milliseconds

void waitFor(int fd, const char* what) {
  pollfd descriptor = {fd, POLLIN, 0};
  if (::poll(&descriptor, 1, kPatience) != 1) throw std::runtime_error(std::string("no ") + what);
}

// The descriptor that came with a one-byte message.
FileDescriptor receiveDescriptor(int socket) {
  char byte = 0;
  iovec data = {&byte, 1};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr message = {};
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  waitFor(socket, "endpoint");
  systemCall("recvmsg", [&] { return ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC); });
  const cmsghdr* header = CMSG_FIRSTHDR(&message);
  if (header == nullptr) throw std::runtime_error("no endpoint in the message");
  int fd = -1;
  std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
  return FileDescriptor(fd);
}

pid_t spawn(const std::vector<std::string>& command, int input, int output) {
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  pid_t pid = -1;
  const int failure =
      ::posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) throw std::system_error(failure, std::system_category(), command[0]);
  return pid;
}

}  // namespace

RunningHelper::~RunningHelper() {
  input_.reset();
  if (pid_ > 0) ::waitpid(pid_, nullptr, 0);
}

void RunningHelper::say(std::string_view text) const {
  systemCall("write", [&] { return ::write(input_.get(), text.data(), text.size()); });
}

BareLauncher::BareLauncher(std::string folder, std::string helper, std::vector<std::string> wrapper)
    : socketPath_(std::move(folder) + "/callback"), command_(std::move(wrapper)) {
  command_.push_back(std::move(helper));
  command_.push_back(socketPath_);
  listener_ = FileDescriptor(
      systemCall("socket", [] { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  socketPath_.copy(address.sun_path, sizeof address.sun_path - 1);
  ::unlink(socketPath_.c_str());
  systemCall("bind", [&] {
    return ::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
  });
  systemCall("chmod", [&] { return ::chmod(socketPath_.c_str(), 0666); });
  systemCall("listen", [&] { return ::listen(listener_.get(), 8); });
}

RunningHelper BareLauncher::launch() const {
  PipeEnds input = makePipe();
  PipeEnds output = makePipe();
  const pid_t pid = spawn(command_, input.reading.get(), output.writing.get());
  RunningHelper helper(pid, std::move(input.writing));
  input.reading.reset();
  output.writing.reset();
  helper.say(kHandshake);
  char status[3] = {};
  for (std::size_t have = 0; have < sizeof status;) {
    waitFor(output.reading.get(), "answer to the handshake");
    const ssize_t count = ::read(output.reading.get(), status + have, sizeof status - have);
    if (count <= 0) throw std::runtime_error(command_[0] + " did not start the helper");
    have += static_cast<std::size_t>(count);
  }
  waitFor(listener_.get(), "call back");
  const FileDescriptor callback(systemCall(
      "accept4", [&] { return ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC); }));
  helper.setEndpoint(receiveDescriptor(callback.get()));
  return helper;
}

}  // namespace hoist::bench
