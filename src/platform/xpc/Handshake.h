// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/Clock.h"
#include "platform/FileDescriptor.h"
#include "platform/dbus/FrameReader.h"
#include "platform/dbus/Sasl.h"
#include "platform/xpc/Admission.h"

namespace hoist::xpc {

// An accepted connection until it has authenticated. Never blocks, but its end may (Disposal.h)
// unless the peer has hung up and left nothing.
// Belongs to the listener's thread.
class Handshake {
 public:
  enum class Outcome { kNeedsInput, kAuthenticated, kFailed };

  Handshake(FileDescriptor socket, Ref<Admission> admission, const std::string& guid);

  // Reads what is there and answers it. Failures are reported.
  Outcome advance();
  // Reports that the peer did not make it in time.
  void reportLate() const;

  int socket() const { return socket_.get(); }
  bool hasHungUp() const { return hungUp_; }
  uid_t user() const { return admission_->peer().user; }
  Clock::Instant deadline() const { return deadline_; }

  // After kAuthenticated: the parts, with what came behind the authentication.
  FileDescriptor takeSocket() { return std::move(socket_); }
  dbus::FrameReader takeReader() { return std::move(reader_); }
  Ref<Admission> takeAdmission() { return std::move(admission_); }
  bool descriptorsNegotiated() const { return sasl_.fileDescriptorsNegotiated(); }

 private:
  Outcome fail(std::string_view why) const;

  // The place is given back when all that was held in it has gone.
  Ref<Admission> admission_;
  FileDescriptor socket_;
  dbus::SaslServer sasl_;
  dbus::FrameReader reader_;
  dbus::FileDescriptors descriptors_;  // that came last
  bool hungUp_ = false;
  const Clock::Instant deadline_;
};

}  // namespace hoist::xpc
