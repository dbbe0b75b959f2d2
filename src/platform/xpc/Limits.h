// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>

// Everything that a peer can make this side hold or do is bounded; all bounds stand here. They are
// set when the program is built: the log names the constant that was reached.
namespace hoist::xpc {

// --- Connections -------------------------------------------------------------------------------

// Of one user. A desktop session has a handful of clients; a test of fifty fits. Connections of
// helpers that this process started do not count among them.
inline constexpr std::size_t kConnectionsOfOneUser = 64;
// Of the helpers of one user, and of what they start in turn: four for each of kHelpersOfOneUser.
inline constexpr std::size_t kConnectionsOfOneUsersHelpers = 256;
// Of all users but root. Each costs a thread (about 36 KiB) and a descriptor.
inline constexpr std::size_t kConnectionsOfAllUsers = 1024;
// Descriptors that stay free for root's connections, whatever the others do, and as many again for
// the work itself.
inline constexpr std::size_t kReservedForRoot = 64;
// Connections that have not yet authenticated. A library authenticates within one round trip.
inline constexpr std::size_t kUnauthenticatedOfOneUser = 32;
inline constexpr std::size_t kUnauthenticatedOfAllUsers = 256;
// How long a peer may take to authenticate. Picked: a third of what a user would wait.
inline constexpr std::chrono::seconds kAuthenticationTime{10};
// How long accepting rests when the process has no descriptor left. Picked: short enough not to be
// noticed, long enough not to spin.
inline constexpr std::chrono::milliseconds kAcceptPause{100};

// --- Messages ----------------------------------------------------------------------------------

// From the first to the last byte of a message. A message goes through a local socket in
// milliseconds.
inline constexpr std::chrono::seconds kMessageTime{30};
// A whole message, header included: to the hoist, whose largest argument is a list of 128 paths,
// and to a helper, whose dictionaries may carry real data.
inline constexpr std::size_t kMessageSize = std::size_t{1} << 20;
inline constexpr std::size_t kHelperMessageSize = std::size_t{16} << 20;
// Unfinished messages and unread answers of one user, all connections together: what one user can
// make the process hold. A helper, whose messages are larger, holds two of them.
inline constexpr std::size_t kHeldBytesOfOneUser = std::size_t{8} << 20;
inline constexpr std::size_t kHelperHeldBytesOfOneUser = 2 * kHelperMessageSize;
// Answers that the peer has not yet read, beyond what the kernel buffers. An answer that is larger
// than that may wait alone.
inline constexpr std::size_t kUnreadAnswers = std::size_t{1} << 20;
// Descriptors of one message, complete or not; of one user at once. No operation takes more than
// one.
inline constexpr std::size_t kDescriptorsOfOneMessage = 16;
inline constexpr std::size_t kDescriptorsOfOneUser = 64;

// --- The sender's side -------------------------------------------------------------------------

// Calls of one connection that are sent and not yet answered.
inline constexpr std::size_t kOutstandingCalls = 4096;
// Messages that the peer has not yet taken, beyond what the kernel buffers; further ones fail at
// the sender.
inline constexpr std::size_t kUnsentMessages = std::size_t{16} << 20;

// --- What the services on top bound ------------------------------------------------------------

// Processes in one sample request; sampling jobs of one user. A sample stops its target a thousand
// times a second.
inline constexpr std::size_t kProcessesInOneSample = 128;
inline constexpr std::size_t kSamplingJobsOfOneUser = 256;
// Helpers of one user that run at once. Each keeps a sealed copy of its executable mapped.
inline constexpr std::size_t kHelpersOfOneUser = 64;
// What is read of a refused helper's output, and for how long.
inline constexpr std::size_t kRefusedHelperOutput = 64 * 1024;
inline constexpr std::chrono::seconds kRefusedHelperTime{10};

// The bounds that differ from listener to listener; the others hold everywhere.
struct Limits {
  std::size_t messageSize = kMessageSize;
  std::size_t heldBytesOfOneUser = kHeldBytesOfOneUser;

  static Limits forHelper() { return {kHelperMessageSize, kHelperHeldBytesOfOneUser}; }
};

}  // namespace hoist::xpc
