// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/dbus/SocketIO.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "platform/dbus/FrameReader.h"
#include "platform/dbus/MessageWriter.h"

namespace hoist::dbus {
namespace {

struct SocketPair {
  FileDescriptor near, far;
};

SocketPair makePair() {
  int ends[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

OutgoingMessage messageWithDescriptors(int count) {
  MessageWriter writer(methodCall("/", "a.b", "M", "ah"));
  writer.openArray();
  for (int i = 0; i < count; ++i) {
    writer.appendFileDescriptor(FileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)));
  }
  writer.close();
  return writer.finish();
}

bool isSameFile(int a, int b) {
  struct stat first, second;
  return fstat(a, &first) == 0 && fstat(b, &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

TEST(SocketIO, PassesAMessageWithItsDescriptors) {
  auto [near, far] = makePair();
  OutgoingMessage message = messageWithDescriptors(3);
  Sent sent = send(near.get(), message, 0);
  ASSERT_EQ(sent.status, IOStatus::kDone);
  EXPECT_EQ(sent.size, message.bytes.size());

  FrameReader reader;
  Received received = receive(far.get(), reader.space());
  ASSERT_EQ(received.status, IOStatus::kDone);
  EXPECT_EQ(received.size, message.bytes.size());
  ASSERT_EQ(received.descriptors.size(), 3u);
  for (const auto& descriptor : received.descriptors) {
    EXPECT_EQ(fcntl(descriptor.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_TRUE(isSameFile(descriptor.get(), message.descriptors[0].get()));
  }
  reader.received(received.size, std::move(received.descriptors));
  EXPECT_EQ(reader.next()->fileDescriptorCount(), 3u);
}

TEST(SocketIO, ReceivesExactlyAsManyDescriptorsAsAllowed) {
  for (int count : {2, 5, 16, 253}) {
    auto [near, far] = makePair();
    OutgoingMessage message = messageWithDescriptors(count);
    std::ptrdiff_t before = openDescriptors();
    Bytes space(4096);
    ASSERT_EQ(send(near.get(), message, 0).status, IOStatus::kDone);
    {
      Received received = receive(far.get(), space, static_cast<std::size_t>(count));
      EXPECT_EQ(received.status, IOStatus::kDone);
      EXPECT_EQ(received.descriptors.size(), static_cast<std::size_t>(count));
    }
    ASSERT_EQ(send(near.get(), message, 0).status, IOStatus::kDone);
    Received received = receive(far.get(), space, static_cast<std::size_t>(count) - 1);
    EXPECT_EQ(received.status, IOStatus::kFailed);
    EXPECT_EQ(received.error, EMSGSIZE);
    EXPECT_TRUE(received.descriptors.empty());
    EXPECT_EQ(openDescriptors(), before);
  }
}

TEST(SocketIO, TakesNoDescriptorWhereNoneIsToBeTaken) {
  auto [near, far] = makePair();
  OutgoingMessage message = messageWithDescriptors(2);
  std::ptrdiff_t before = openDescriptors();
  ASSERT_EQ(send(near.get(), message, 0).status, IOStatus::kDone);
  Bytes space(4096);
  for (int flags : {int{MSG_PEEK}, 0}) {
    Received received = receive(far.get(), space, 0, flags);
    EXPECT_EQ(received.status, IOStatus::kDone);
    EXPECT_EQ(received.size, message.bytes.size());
    EXPECT_TRUE(received.withheld);
    EXPECT_TRUE(received.descriptors.empty());
    EXPECT_EQ(openDescriptors(), before);
  }
  ASSERT_EQ(send(near.get(), std::span(message.bytes)).status, IOStatus::kDone);
  EXPECT_FALSE(receive(far.get(), space, 0).withheld);
}

TEST(SocketIO, SaysWhenDescriptorsCameForWhichThereIsNoNumber) {
  auto [near, far] = makePair();
  OutgoingMessage message = messageWithDescriptors(3);
  ASSERT_EQ(send(near.get(), message, 0).status, IOStatus::kDone);
  Bytes space(4096);
  int lowest = FileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)).get();
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit oneLeft{static_cast<rlim_t>(lowest) + 1, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &oneLeft), 0);
  Received received = receive(far.get(), space);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(received.status, IOStatus::kFailed);
  EXPECT_EQ(received.error, EMFILE);
  EXPECT_TRUE(received.descriptors.empty());
}

TEST(SocketIO, SaysWhenNothingIsThereAndWhenThePeerHasClosed) {
  auto [near, far] = makePair();
  Bytes space(16);
  EXPECT_EQ(receive(far.get(), space, 16, MSG_DONTWAIT).status, IOStatus::kWouldBlock);
  near.reset();
  EXPECT_EQ(receive(far.get(), space).status, IOStatus::kEnd);
  OutgoingMessage message = messageWithDescriptors(1);
  Sent sent = send(far.get(), message, 0);  // no SIGPIPE
  EXPECT_EQ(sent.status, IOStatus::kFailed);
  EXPECT_EQ(sent.error, EPIPE);
  Received received = receive(-1, space);
  EXPECT_EQ(received.status, IOStatus::kFailed);
  EXPECT_EQ(received.error, EBADF);
}

TEST(SocketIO, GoesOnWhereAPartialWriteEnded) {
  auto [near, far] = makePair();
  int small = 4096;
  setsockopt(near.get(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
  MessageWriter writer(methodCall("/", "a.b", "M", "hs"));
  writer.appendFileDescriptor(FileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)));
  writer.appendString(std::string(300'000, 'x'));
  OutgoingMessage message = writer.finish();

  FrameReader reader;
  std::optional<Message> result;
  std::size_t offset = 0;
  int waits = 0;
  while (!result) {
    Sent sent = send(near.get(), message, offset, MSG_DONTWAIT);
    if (offset == message.bytes.size()) sent.size = 0;
    waits += sent.status == IOStatus::kWouldBlock;
    offset += sent.size;
    Received received = receive(far.get(), reader.space(), 16, MSG_DONTWAIT);
    ASSERT_NE(received.status, IOStatus::kFailed);
    if (received.status == IOStatus::kDone) {
      reader.received(received.size, std::move(received.descriptors));
    }
    result = reader.next();
  }
  EXPECT_GT(waits, 0);
  EXPECT_EQ(result->fileDescriptorCount(), 1u);
  EXPECT_EQ(result->size(), message.bytes.size());
}

TEST(SocketIO, MatchesDescriptorsToMessagesThatTheKernelDeliversTogether) {
  auto [near, far] = makePair();
  MessageWriter plainWriter(methodCall("/", "a.b", "Plain"));
  OutgoingMessage plain = plainWriter.finish();
  OutgoingMessage two = messageWithDescriptors(2);
  OutgoingMessage one = messageWithDescriptors(1);
  for (const OutgoingMessage* message : {&plain, &two, &plain, &one, &plain}) {
    ASSERT_EQ(send(near.get(), *message, 0).status, IOStatus::kDone);
  }
  near.reset();
  FrameReader reader;
  std::vector<std::size_t> counts;
  for (;;) {
    Received received = receive(far.get(), reader.space());
    if (received.status == IOStatus::kEnd) break;
    ASSERT_EQ(received.status, IOStatus::kDone);
    reader.received(received.size, std::move(received.descriptors));
    while (auto message = reader.next()) counts.push_back(message->fileDescriptorCount());
  }
  EXPECT_EQ(counts, (std::vector<std::size_t>{0, 2, 0, 1, 0}));
}

}  // namespace
}  // namespace hoist::dbus
