// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Disposal.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <vector>

#include "platform/SystemCall.h"
#include "platform/xpc/testing/Lingering.h"
#include "platform/xpc/testing/RawPeer.h"

namespace hoist::xpc {
namespace {

// Whether the last writing end of the pipe has been closed; waits for it.
bool hasEnded(const PipeEnds& pipe) {
  pollfd end{pipe.reading.get(), POLLIN, 0};
  return retryInterrupted([&] { return ::poll(&end, 1, 30'000); }) == 1;
}

// Descriptors go in the order of their message or in the other one, so those on both sides of a
// socket that lingers go only if that one does not hold them up.
TEST(Disposal, ClosesWhatWasNotReceivedWithoutLingering) {
  std::vector<Lingering> lingering(20);
  std::vector<PipeEnds> pipes;
  for (auto& socket : lingering) {
    int ends[2];
    systemCall("socketpair",
               [&] { return ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends); });
    RawPeer peer{FileDescriptor(ends[0])};
    for (int side = 0; side < 2; ++side) {
      pipes.push_back(makePipe());
      peer.send("x", {pipes.back().writing.get()});
      pipes.back().writing.reset();
      if (side == 0) {
        ASSERT_TRUE(socket.passTo(peer, "x"));
      }
    }
    closeUnread(FileDescriptor(ends[1]));
  }
  for (const auto& pipe : pipes) EXPECT_TRUE(hasEnded(pipe));
}

TEST(Disposal, ClosesAnythingElsewhere) {
  auto pipe = makePipe();
  auto descriptors = make<dbus::FileDescriptors>();
  descriptors->push_back(std::move(pipe.writing));
  closeElsewhere(std::move(descriptors));
  EXPECT_TRUE(hasEnded(pipe));
}

}  // namespace
}  // namespace hoist::xpc
