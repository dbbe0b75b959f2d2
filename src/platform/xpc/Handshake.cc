// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Handshake.h"

#include <fmt/format.h>
#include <sys/socket.h>

#include "platform/xpc/PeerReports.h"

namespace hoist::xpc {

Handshake::Handshake(FileDescriptor socket, Ref<Admission> admission, bool isTrusted,
                     const std::string& guid)
    : admission_(std::move(admission)),
      socket_(std::move(socket)),
      isTrusted_(isTrusted),
      sasl_(admission_->peer().user, guid),
      deadline_(Clock::instant() + kAuthenticationTime) {}

// What is there is looked at first, and taken only as far as the authentication goes.
Handshake::Outcome Handshake::advance() {
  std::uint8_t buffer[4096];
  auto seen = dbus::receive(socket(), buffer, 0, MSG_PEEK | MSG_DONTWAIT);
  if (seen.status == dbus::IOStatus::kWouldBlock) return Outcome::kNeedsInput;
  if (seen.status == dbus::IOStatus::kEnd) {
    hungUp_ = true;
    return Outcome::kFailed;
  }
  if (seen.status == dbus::IOStatus::kFailed) return fail("cannot be read");
  auto step = sasl_.receive({reinterpret_cast<const char*>(buffer), seen.size});
  bool isOver = step.state == dbus::SaslState::kAuthenticated;
  std::span<std::uint8_t> exchange(buffer, isOver ? step.consumed : seen.size);
  if (seen.withheld && bringsDescriptors(exchange)) {
    return fail("passes descriptors that were not agreed on");
  }
  dbus::receive(socket(), exchange, 0, MSG_DONTWAIT);
  auto answered = answer(step.reply);
  if (answered.status == dbus::IOStatus::kFailed) return Outcome::kFailed;
  // A peer that does not read the few bytes of its own authentication is not waited for.
  if (answered.size != step.reply.size()) return fail("does not read the authentication's answers");
  if (step.state == dbus::SaslState::kFailed) return fail(sasl_.failure());
  if (!isOver) return Outcome::kNeedsInput;
  admission_->authenticated();
  return Outcome::kAuthenticated;
}

// Whether the kernel would have to let go of descriptors if these bytes were taken.
bool Handshake::bringsDescriptors(std::span<std::uint8_t> space) const {
  return dbus::receive(socket(), space, 0, MSG_PEEK | MSG_DONTWAIT).withheld;
}

dbus::Sent Handshake::answer(std::string_view text) const {
  if (text.empty()) return {dbus::IOStatus::kDone};
  std::span bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  return dbus::send(socket(), bytes, MSG_DONTWAIT);
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
