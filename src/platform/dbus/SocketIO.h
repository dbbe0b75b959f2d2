// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/dbus/Message.h"

// Reads and writes of a connected Unix stream socket that pass descriptors. Each function is one
// system call, repeated only for EINTR; none throws for what a peer or the network does. Any
// thread.
namespace hoist::dbus {

// More cannot come with one read: SCM_MAX_FD of the kernel.
inline constexpr std::size_t kMaximumPassedDescriptors = 253;

enum class IOStatus {
  kDone,        // some bytes were moved
  kWouldBlock,  // nothing can be moved at the moment
  kEnd,         // the peer has closed its end (receive only)
  kFailed,      // see error
};

struct Received {
  IOStatus status = IOStatus::kFailed;
  // errno. EMSGSIZE: more than maximumDescriptors came at once, EMFILE: there is no number for all
  // that came; the bytes are lost and the descriptors closed.
  int error = 0;
  std::size_t size = 0;         // bytes
  FileDescriptors descriptors;  // close-on-exec
  bool withheld = false;        // descriptors came, and none was to be taken
};

// Reads what is there, at most space.size() bytes. flags: MSG_DONTWAIT and the like.
//
// With no maximumDescriptors none is taken: those that come never get a number in this process, and
// with MSG_PEEK they stay in the socket. Otherwise the kernel lets go of them on this thread, which
// a socket that lingers can delay.
Received receive(int socket, std::span<std::uint8_t> space, std::size_t maximumDescriptors = 16,
                 int flags = 0);

struct Sent {
  IOStatus status = IOStatus::kFailed;
  int error = 0;         // errno
  std::size_t size = 0;  // bytes taken by the kernel
};

// Writes what fits of the message from the offset on. Its descriptors go with byte 0 and are the
// message's still afterwards. Raises no SIGPIPE.
Sent send(int socket, const OutgoingMessage& message, std::size_t offset, int flags = 0);
// The same for plain bytes.
Sent send(int socket, std::span<const std::uint8_t> bytes, int flags = 0);

}  // namespace hoist::dbus
