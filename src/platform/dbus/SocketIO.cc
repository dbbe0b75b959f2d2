// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/dbus/SocketIO.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/SystemCall.h"

namespace hoist::dbus {

namespace {

union ControlBuffer {
  cmsghdr alignment;
  char bytes[CMSG_SPACE(kMaximumPassedDescriptors * sizeof(int))];
};

IOStatus statusOf(int error) {
  return error == EAGAIN || error == EWOULDBLOCK ? IOStatus::kWouldBlock : IOStatus::kFailed;
}

FileDescriptors takeDescriptors(msghdr& header) {
  FileDescriptors descriptors;
  for (cmsghdr* control = CMSG_FIRSTHDR(&header); control;
       control = CMSG_NXTHDR(&header, control)) {
    if (control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_RIGHTS) continue;
    std::size_t count = (control->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count; ++i) {
      int fd;
      std::memcpy(&fd, CMSG_DATA(control) + i * sizeof fd, sizeof fd);
      descriptors.emplace_back(fd);
    }
  }
  return descriptors;
}

Sent sentOf(ssize_t size) {
  if (size < 0) return {statusOf(errno), errno, 0};
  return {IOStatus::kDone, 0, static_cast<std::size_t>(size)};
}

// The first bytes, with all the descriptors.
Sent sendDescriptors(int socket, const OutgoingMessage& message, int flags) {
  std::size_t count = message.descriptors.size();
  if (count > kMaximumPassedDescriptors) return {IOStatus::kFailed, EINVAL, 0};
  ControlBuffer control;
  iovec vector{const_cast<std::uint8_t*>(message.bytes.data()), message.bytes.size()};
  msghdr header{};
  header.msg_iov = &vector;
  header.msg_iovlen = 1;
  header.msg_control = &control;
  header.msg_controllen = CMSG_SPACE(count * sizeof(int));
  std::memset(&control, 0, header.msg_controllen);
  cmsghdr* rights = CMSG_FIRSTHDR(&header);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(count * sizeof(int));
  for (std::size_t i = 0; i < count; ++i) {
    int fd = message.descriptors[i].get();
    std::memcpy(CMSG_DATA(rights) + i * sizeof fd, &fd, sizeof fd);
  }
  return sentOf(retryInterrupted([&] { return sendmsg(socket, &header, flags | MSG_NOSIGNAL); }));
}

}  // namespace

Received receive(int socket, std::span<std::uint8_t> space, std::size_t maximumDescriptors,
                 int flags) {
  ControlBuffer control;
  iovec vector{space.data(), space.size()};
  msghdr header{};
  header.msg_iov = &vector;
  header.msg_iovlen = 1;
  if (maximumDescriptors > 0) {
    header.msg_control = &control;
    header.msg_controllen =
        CMSG_LEN(std::min(maximumDescriptors, kMaximumPassedDescriptors) * sizeof(int));
  }
  ssize_t size =
      retryInterrupted([&] { return recvmsg(socket, &header, flags | MSG_CMSG_CLOEXEC); });
  if (size < 0) return {statusOf(errno), errno, 0, {}};
  FileDescriptors descriptors = takeDescriptors(header);
  bool withheld = header.msg_flags & MSG_CTRUNC;
  if (withheld && maximumDescriptors > 0) {
    // The kernel does not say why it kept some back.
    bool hadRoom = descriptors.size() < std::min(maximumDescriptors, kMaximumPassedDescriptors);
    return {IOStatus::kFailed, hadRoom ? EMFILE : EMSGSIZE, 0, {}};
  }
  if (size == 0) return {IOStatus::kEnd, 0, 0, {}};
  return {IOStatus::kDone, 0, static_cast<std::size_t>(size), std::move(descriptors), withheld};
}

Sent send(int socket, const OutgoingMessage& message, std::size_t offset, int flags) {
  if (offset == 0 && !message.descriptors.empty()) return sendDescriptors(socket, message, flags);
  return send(socket, std::span(message.bytes).subspan(offset), flags);
}

Sent send(int socket, std::span<const std::uint8_t> bytes, int flags) {
  return sentOf(retryInterrupted(
      [&] { return ::send(socket, bytes.data(), bytes.size(), flags | MSG_NOSIGNAL); }));
}

}  // namespace hoist::dbus
