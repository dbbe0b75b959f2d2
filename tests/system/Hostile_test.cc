// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Clients that speak to the running daemon by hand, to do harm. Each holds up only itself.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/SystemCall.h"
#include "platform/xpc/Limits.h"
#include "platform/xpc/testing/RawPeer.h"
#include "system/RunningHoist.h"

namespace hoist {
namespace {

constexpr unsigned kHostile = 20666;
constexpr unsigned kOther = 20001;
const std::string kSocket = "/run/kelvo/com.kelvo.hoist";

// Connects as the user: the effective user of this thread alone changes meanwhile.
FileDescriptor connectAs(unsigned user) {
  FileDescriptor peer(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{.sun_family = AF_UNIX};
  kSocket.copy(address.sun_path, sizeof address.sun_path - 1);
  ::syscall(SYS_setresuid, -1, user, -1);
  int result = ::connect(peer.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
  int failure = errno;
  ::syscall(SYS_setresuid, -1, 0, -1);
  if (result < 0) throw SystemCallError(failure, "connect", kSocket);
  return peer;
}

// Sends all of it, or what the peer takes before it closes or stops reading for good.
void send(const FileDescriptor& peer, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t put = ::send(peer.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (put <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(put));
  }
}

// Waits for the end of the connection; answers what was received before it.
std::string receiveToTheEnd(const FileDescriptor& peer) {
  std::string received;
  char buffer[65536];
  for (ssize_t got; (got = ::recv(peer.get(), buffer, sizeof buffer, 0)) > 0;) {
    if (received.size() < 4096) received.append(buffer, static_cast<std::size_t>(got));
  }
  return received;
}

const std::string kAuthentication =
    std::string("\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n", 48);

// A call of org.freedesktop.DBus.Peer.Ping, as it goes over the wire (little-endian, no body).
std::string ping(std::uint32_t serial) {
  std::string message("l\1\0\1\0\0\0\0", 8);
  auto number = [&](std::uint32_t value) {
    message.append(reinterpret_cast<const char*>(&value), 4);
  };
  auto pad = [&] { message.resize((message.size() + 7) / 8 * 8); };
  number(serial);
  std::size_t lengthAt = message.size();
  number(0);
  auto field = [&](char code, char type, const std::string& text) {
    pad();
    message += code;
    message += std::string("\1", 1) + type + std::string("\0", 1);
    number(static_cast<std::uint32_t>(text.size()));
    message += text + std::string("\0", 1);
  };
  field(1, 'o', "/");
  field(2, 's', "org.freedesktop.DBus.Peer");
  field(3, 's', "Ping");
  auto length = static_cast<std::uint32_t>(message.size() - lengthAt - 4);
  message.replace(lengthAt, 4, reinterpret_cast<const char*>(&length), 4);
  pad();
  return message;
}

std::size_t residentKilobytes(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) return std::stoul(line.substr(6));
  }
  return 0;
}

class Hostile : public testing::Test {
 protected:
  Hostile() {
    // Whatever is made once is made by a first client.
    hoistctl(kOther, {"status"});
    before_ = hoist_.holdings();
    memory_ = residentKilobytes(hoist_.process());
  }
  // Others are served, and nothing is left.
  ~Hostile() override {
    EXPECT_EQ(hoistctl(kOther, {"status"}).status, 0);
    auto after = hoist_.holdingsAfterSettling(before_);
    EXPECT_LE(after.descriptors, before_.descriptors);
    EXPECT_LE(after.threads, before_.threads);
    EXPECT_EQ(after.children, 0u);
#ifndef HOIST_SANITIZED
    EXPECT_LT(residentKilobytes(hoist_.process()), memory_ + 8 * 1024);
#endif
  }

  RunningHoist hoist_;
  RunningHoist::Holdings before_;
  std::size_t memory_;
};

TEST_F(Hostile, PeerThatCallsAMillionTimesAndNeverReadsIsDropped) {
  FileDescriptor peer = connectAs(kHostile);
  send(peer, kAuthentication);
  std::string calls;
  for (std::uint32_t serial = 1; serial <= 1000; ++serial) calls += ping(serial);
  // The socket's buffer is the queue: once it and the unread answers are full, the peer is dropped,
  // and sending fails.
  for (int thousand = 0; thousand < 1000; ++thousand) send(peer, calls);
  EXPECT_EQ(hoistctl(kOther, {"status"}).status, 0);
  receiveToTheEnd(peer);
}

TEST_F(Hostile, PeerThatAnnouncesAHundredMegabytesIsDropped) {
  FileDescriptor peer = connectAs(kHostile);
  send(peer, kAuthentication);
  std::string message = ping(1);
  std::uint32_t length = 100 * 1024 * 1024;
  message.replace(4, 4, reinterpret_cast<const char*>(&length), 4);
  send(peer, message);
  receiveToTheEnd(peer);
}

TEST_F(Hostile, PeerThatSendsGarbageIsDropped) {
  FileDescriptor peer = connectAs(kHostile);
  send(peer, kAuthentication + std::string(64, 'x'));
  receiveToTheEnd(peer);
}

TEST_F(Hostile, PeerThatClaimsToBeRootIsRejected) {
  FileDescriptor peer = connectAs(kHostile);
  send(peer, std::string("\0AUTH EXTERNAL 30\r\n", 19));
  char answer[64] = {};
  ASSERT_GT(::recv(peer.get(), answer, sizeof answer - 1, 0), 0);
  EXPECT_STREQ(answer, "REJECTED EXTERNAL\r\n");
}

TEST_F(Hostile, UserWithTooManyConnectionsIsRefusedFurtherOnes) {
  std::vector<FileDescriptor> peers;
  std::size_t closed = 0;
  for (std::size_t i = 0; i < xpc::kConnectionsOfOneUser + 20; ++i) {
    FileDescriptor peer = connectAs(kHostile);
    send(peer, kAuthentication + ping(1));
    // Answered or closed: the first bytes are the authentication's, of one that is let in.
    char byte;
    if (::recv(peer.get(), &byte, 1, 0) > 0) {
      peers.push_back(std::move(peer));
    } else {
      ++closed;
    }
  }
  EXPECT_LE(peers.size(), xpc::kConnectionsOfOneUser);
  EXPECT_GE(closed, 20u);
  EXPECT_EQ(hoistctl(kOther, {"status"}).status, 0);
  EXPECT_NE(hoist_.log().find("user 20666"), std::string::npos);
}

TEST_F(Hostile, PeersThatStopInTheMiddleOfAnythingHoldUpNobody) {
  std::string conversation = kAuthentication + ping(1);
  std::vector<FileDescriptor> peers;
  for (std::size_t cut = 0; cut <= conversation.size(); cut += 8) {
    peers.push_back(connectAs(kHostile));
    send(peers.back(), std::string_view(conversation).substr(0, cut));
  }
  EXPECT_EQ(hoistctl(kOther, {"status"}).status, 0);
  // Not even their own user.
  EXPECT_EQ(hoistctl(kHostile, {"status"}).status, 0);
}

TEST_F(Hostile, DescriptorsOfMessagesThatAreNeverFinishedAreNotHeld) {
  FileDescriptor null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  std::string part = ping(1);
  part.pop_back();
  std::vector<xpc::RawPeer> peers;
  for (int i = 0; i < 16; ++i) {
    peers.push_back(xpc::RawPeer::asUser(kHostile, kSocket));
    peers.back().authenticate();
    peers.back().send(part, std::vector<int>(xpc::kDescriptorsOfOneMessage, null.get()));
    while (!peers.back().isTaken()) std::this_thread::yield();
  }
  EXPECT_LE(hoist_.holdings().descriptors, before_.descriptors + peers.size());
}

TEST_F(Hostile, PeersThatCloseInTheMiddleOfAnythingLeaveNothing) {
  std::string conversation = kAuthentication + ping(1) + ping(2);
  for (std::size_t cut = 0; cut <= conversation.size(); cut += 3) {
    FileDescriptor peer = connectAs(kHostile);
    send(peer, std::string_view(conversation).substr(0, cut));
  }
}

}  // namespace
}  // namespace hoist
