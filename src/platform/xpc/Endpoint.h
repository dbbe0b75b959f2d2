// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>

#include "platform/FileDescriptor.h"
#include "values/Ref.h"

namespace hoist::xpc {

// A capability to connect to a listener (what the original platform calls a listener endpoint):
// whoever holds it can connect, nobody else can, and it needs no name in any file system. It is one
// end of a Unix SOCK_SEQPACKET pair whose other end the listener holds. Copies share the
// descriptor. Safe to use from any thread.
class Endpoint {
 public:
  // Takes over the descriptor. Anything may have come from a peer: a descriptor that is no such
  // socket throws DecodeError.
  static Endpoint fromDescriptor(FileDescriptor descriptor);

  // Borrowed.
  int descriptor() const { return descriptor_->get(); }

  // A new stream socket that is connected to the listener, close-on-exec. The user that the
  // listener sees is the effective user of the caller. Throws SystemCallError when the listener is
  // gone. Waits while very many others connect, until the flag, if there is one, is set.
  FileDescriptor connect(const std::atomic<bool>* cancelled = nullptr) const;

 private:
  explicit Endpoint(FileDescriptor descriptor)
      : descriptor_(std::make_shared<const FileDescriptor>(std::move(descriptor))) {}

  Ref<const FileDescriptor> descriptor_;
};

}  // namespace hoist::xpc
