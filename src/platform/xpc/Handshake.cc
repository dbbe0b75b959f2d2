// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Handshake.h"

#include <fmt/format.h>
#include <sys/socket.h>

#include "platform/dbus/SocketIO.h"
#include "platform/xpc/PeerReports.h"

namespace hoist::xpc {

Handshake::Handshake(FileDescriptor socket, Ref<Admission> admission, const std::string& guid)
    : admission_(std::move(admission)),
      socket_(std::move(socket)),
      sasl_(admission_->peer().user, guid),
      deadline_(Clock::instant() + kAuthenticationTime) {}

Handshake::Outcome Handshake::advance() {
  std::uint8_t buffer[4096];
  // Every descriptor that may come is taken: the kernel would close the others here and now.
  auto got = dbus::receive(socket(), buffer, dbus::kMaximumPassedDescriptors, MSG_DONTWAIT);
  descriptors_ = std::move(got.descriptors);
  if (got.status == dbus::IOStatus::kWouldBlock) return Outcome::kNeedsInput;
  if (got.status == dbus::IOStatus::kEnd) {
    hungUp_ = true;
    return Outcome::kFailed;
  }
  if (got.status == dbus::IOStatus::kFailed) return fail("cannot be read");
  auto step = sasl_.receive({reinterpret_cast<const char*>(buffer), got.size});
  if (!step.reply.empty()) {
    auto sent = dbus::send(
        socket(), {reinterpret_cast<const std::uint8_t*>(step.reply.data()), step.reply.size()},
        MSG_DONTWAIT);
    if (sent.status == dbus::IOStatus::kFailed) return Outcome::kFailed;
    // A peer that does not read the few bytes of its own authentication is not waited for.
    if (sent.size != step.reply.size()) return fail("does not read the authentication's answers");
  }
  if (step.state == dbus::SaslState::kFailed) return fail(sasl_.failure());
  std::span<const std::uint8_t> rest(buffer + step.consumed, got.size - step.consumed);
  bool mayBringDescriptors = step.state == dbus::SaslState::kAuthenticated && !rest.empty() &&
                             sasl_.fileDescriptorsNegotiated();
  if (!descriptors_.empty() && !mayBringDescriptors) {
    return fail("passes descriptors that were not agreed on");
  }
  if (step.state == dbus::SaslState::kNeedMore) return Outcome::kNeedsInput;
  auto descriptors = sasl_.fileDescriptorsNegotiated() ? kDescriptorsOfOneMessage : 0;
  reader_ = dbus::FrameReader({admission_->limits().messageSize, descriptors});
  try {
    if (!rest.empty()) reader_.append(rest, std::move(descriptors_));
  } catch (const dbus::ProtocolError& error) {
    return fail(error.what());
  }
  admission_->authenticated();
  return Outcome::kAuthenticated;
}

void Handshake::reportLate() const {
  fail(fmt::format("has not authenticated after {} seconds (kAuthenticationTime in xpc/Limits.h)",
                   kAuthenticationTime.count()));
}

Handshake::Outcome Handshake::fail(std::string_view why) const {
  reportPeer(admission_->peer(), fmt::format("closed, {}", why));
  return Outcome::kFailed;
}

}  // namespace hoist::xpc
