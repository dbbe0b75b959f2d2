// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/Clock.h"
#include "platform/FileDescriptor.h"
#include "platform/dbus/Sasl.h"
#include "platform/dbus/SocketIO.h"
#include "platform/xpc/Admission.h"

namespace hoist::xpc {

// An accepted connection until it has authenticated. Takes the bytes of the authentication and
// nothing else: no descriptor, and no message behind it. Never blocks, but to close its socket may
// (Disposal.h) unless the peer has hung up and left nothing. Belongs to the listener's thread.
class Handshake {
 public:
  enum class Outcome { kNeedsInput, kAuthenticated, kFailed };

  Handshake(FileDescriptor socket, Ref<Admission> admission, bool isTrusted,
            const std::string& guid);

  // Reads what is there and answers it. Failures are reported.
  Outcome advance();
  // Reports that the peer did not make it in time.
  void reportLate() const;

  int socket() const { return socket_.get(); }
  bool hasHungUp() const { return hungUp_; }
  bool isTrusted() const { return isTrusted_; }
  Clock::Instant deadline() const { return deadline_; }

  // At the end: the parts.
  FileDescriptor takeSocket() { return std::move(socket_); }
  Ref<Admission> takeAdmission() { return std::move(admission_); }
  bool descriptorsNegotiated() const { return sasl_.fileDescriptorsNegotiated(); }

 private:
  bool bringsDescriptors(std::span<std::uint8_t> space) const;
  dbus::Sent answer(std::string_view text) const;
  Outcome fail(std::string_view why) const;

  Ref<Admission> admission_;
  FileDescriptor socket_;
  const bool isTrusted_;
  dbus::SaslServer sasl_;
  bool hungUp_ = false;
  const Clock::Instant deadline_;
};

}  // namespace hoist::xpc
