// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

// What descriptors are that came from somebody else. Any thread.
namespace hoist::xpc {

// The message that asks an endpoint's listener to speak on the one descriptor that it carries.
inline constexpr std::uint8_t kConnectRequest = 'C';

// Whether it is a socket of the Unix family and of the type (SOCK_STREAM, SOCK_SEQPACKET) that does
// not listen.
bool isUnixSocket(int descriptor, int type);
// Whether it is a stream socket of the Unix family with a peer.
bool isConnectedStream(int descriptor);
// Whether it is a listening stream socket of the Unix family.
bool isListeningStream(int descriptor);

}  // namespace hoist::xpc
