// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/dbus/FrameReader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "platform/dbus/MessageReader.h"
#include "platform/dbus/MessageWriter.h"

namespace hoist::dbus {
namespace {

FileDescriptors files(int count) {
  FileDescriptors descriptors;
  for (int i = 0; i < count; ++i) descriptors.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  return descriptors;
}

std::vector<int> numbersOf(const FileDescriptors& descriptors) {
  std::vector<int> numbers;
  for (const auto& descriptor : descriptors) numbers.push_back(descriptor.get());
  return numbers;
}

bool areAllClosed(const std::vector<int>& numbers) {
  return std::ranges::all_of(numbers, [](int fd) { return fcntl(fd, F_GETFD) == -1; });
}

// A call with this text, so that frames differ in size and content.
Bytes frameOf(std::string_view text, std::uint32_t serial = 1) {
  MessageWriter writer(methodCall("/", "a.b", "M", "s"));
  writer.appendString(text);
  return writer.finish(serial).bytes;
}

// A call that announces and refers to so many descriptors, without them.
Bytes frameWithDescriptors(int count) {
  MessageWriter writer(methodCall("/", "a.b", "M", "ah"));
  writer.openArray();
  for (auto& file : files(count)) writer.appendFileDescriptor(std::move(file));
  writer.close();
  return writer.finish().bytes;
}

Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// Puts bytes in as reads of at most this size would, and answers the messages that came out.
std::vector<Message> feed(FrameReader& reader, std::span<const std::uint8_t> bytes,
                          std::size_t portion = 1 << 30) {
  std::vector<Message> messages;
  while (!bytes.empty()) {
    std::span<std::uint8_t> space = reader.space();
    EXPECT_FALSE(space.empty());
    std::size_t size = std::min({space.size(), portion, bytes.size()});
    std::memcpy(space.data(), bytes.data(), size);
    bytes = bytes.subspan(size);
    reader.received(size);
    while (auto message = reader.next()) messages.push_back(std::move(*message));
  }
  return messages;
}

std::string textOf(Message& message) {
  return std::string(MessageReader(message).readString());
}

TEST(FrameReader, CutsAStreamIntoMessagesWhateverThePortions) {
  const Bytes stream =
      joined({frameOf("one", 1), frameOf("", 2), frameOf(std::string(300, 'x'), 3)});
  for (std::size_t portion = 1; portion <= stream.size(); ++portion) {
    FrameReader reader;
    auto messages = feed(reader, stream, portion);
    ASSERT_EQ(messages.size(), 3u) << portion;
    EXPECT_EQ(textOf(messages[0]), "one");
    EXPECT_EQ(textOf(messages[1]), "");
    EXPECT_EQ(textOf(messages[2]), std::string(300, 'x'));
    EXPECT_EQ(messages[2].serial(), 3u);
    EXPECT_EQ(reader.heldBytes(), 0u);
    EXPECT_FALSE(reader.isMidMessage());
  }
}

TEST(FrameReader, SplitsAtEveryByteOfTwoMessages) {
  const Bytes stream = joined({frameOf("one"), frameOf("two")});
  for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
    FrameReader reader;
    auto messages = feed(reader, std::span(stream).first(cut));
    auto others = feed(reader, std::span(stream).subspan(cut));
    std::ranges::move(others, std::back_inserter(messages));
    ASSERT_EQ(messages.size(), 2u) << cut;
    EXPECT_EQ(textOf(messages[0]) + textOf(messages[1]), "onetwo");
  }
}

TEST(FrameReader, SaysWhatItHolds) {
  const Bytes frame = frameOf("text");
  FrameReader reader;
  EXPECT_FALSE(reader.isMidMessage());
  for (std::size_t i = 0; i + 1 < frame.size(); ++i) {
    reader.append(std::span(frame).subspan(i, 1));
    EXPECT_FALSE(reader.next());
    EXPECT_TRUE(reader.isMidMessage());
    EXPECT_EQ(reader.heldBytes(), i + 1);
  }
  reader.append(std::span(frame).last(1));
  EXPECT_TRUE(reader.next());
  EXPECT_EQ(reader.heldBytes(), 0u);
}

TEST(FrameReader, TakesMessagesOfManySizes) {
  for (std::size_t size : {0, 1000, 3950, 4000, 4096, 5000, 8192, 100'000, 1'000'000}) {
    for (std::size_t portion : {333, 4096, 65536}) {
      FrameReader reader;
      Bytes stream =
          joined({frameOf("before"), frameOf(std::string(size, 'x')), frameOf("behind")});
      auto messages = feed(reader, stream, portion);
      ASSERT_EQ(messages.size(), 3u);
      EXPECT_EQ(textOf(messages[1]), std::string(size, 'x'));
      EXPECT_EQ(textOf(messages[2]), "behind");
    }
  }
}

TEST(FrameReader, TakesMuchAtOnceFromElsewhere) {
  FrameReader reader;
  Bytes stream;
  for (std::uint32_t i = 1; i <= 500; ++i) stream = joined({stream, frameOf("x", i)});
  reader.append(std::span(stream).first(10));
  reader.append(std::span(stream).subspan(10, stream.size() - 20));
  for (std::uint32_t i = 1; i <= 499; ++i) EXPECT_EQ(reader.next()->serial(), i);
  EXPECT_FALSE(reader.next());
  auto messages = feed(reader, std::span(stream).last(10));
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].serial(), 500u);
}

TEST(FrameReader, OffersNoMoreSpaceThanTheUnfinishedMessageTakes) {
  const Bytes frame = frameOf(std::string(10'000, 'x'));
  FrameReader reader;
  reader.append(std::span(frame).first(16));
  EXPECT_FALSE(reader.next());
  std::size_t held = 16;
  while (held < frame.size()) {
    auto space = reader.space();
    EXPECT_LE(space.size(), frame.size() - held);
    EXPECT_LE(space.size(), std::max<std::size_t>(
                                held, 4096));  // grows with what comes, not with what is announced
    std::memcpy(space.data(), frame.data() + held, space.size());
    reader.received(space.size());
    held += space.size();
    EXPECT_EQ(reader.next().has_value(), held == frame.size());
  }
}

TEST(FrameReader, RefusesAMessageThatAnnouncesTooMuchAsSoonAsItDoes) {
  Bytes frame = frameOf(std::string(2000, 'x'), 77);
  FrameReader reader({.messageSize = 1500});
  reader.append(std::span(frame).first(15));
  EXPECT_FALSE(reader.next());
  reader.append(std::span(frame).subspan(15, 1));
  try {
    reader.next();
    FAIL();
  } catch (const MessageTooLarge& error) {
    EXPECT_EQ(error.serial(), 77u);
    EXPECT_TRUE(error.replyExpected());
    EXPECT_EQ(error.size(), frame.size());
    EXPECT_EQ(error.limit(), 1500u);
  }
}

TEST(FrameReader, KnowsWhetherARefusedMessageWantsAnAnswer) {
  MessageWriter writer(methodCall("/", "a.b", "M", "s", kNoReplyExpected));
  writer.appendString(std::string(100, 'x'));
  FrameReader reader({.messageSize = 64});
  reader.append(writer.finish().bytes);
  try {
    reader.next();
    FAIL();
  } catch (const MessageTooLarge& error) {
    EXPECT_FALSE(error.replyExpected());
  }
}

TEST(FrameReader, TakesAMessageThatIsJustNotTooLarge) {
  Bytes frame = frameOf("text");
  FrameReader reader({.messageSize = frame.size()});
  EXPECT_EQ(feed(reader, frame).size(), 1u);
  FrameReader stricter({.messageSize = frame.size() - 1});
  EXPECT_THROW(feed(stricter, frame), MessageTooLarge);
}

TEST(FrameReader, RefusesWhatIsNoMessage) {
  FrameReader reader;
  EXPECT_THROW(feed(reader, Bytes(16, 'x')), ProtocolError);
}

TEST(FrameReader, RefusesAWrongMessageBehindAGoodOne) {
  Bytes wrong = frameOf("x");
  wrong[wrong.size() - 2] = 0;
  FrameReader reader;
  reader.append(joined({frameOf("good"), wrong}));
  EXPECT_TRUE(reader.next());
  EXPECT_THROW(reader.next(), ProtocolError);
}

TEST(FrameReader, GivesDescriptorsToTheMessageWhoseBytesTheyCameWith) {
  const Bytes frame = frameWithDescriptors(3);
  // All with any byte of the message.
  for (std::size_t place = 0; place < frame.size(); ++place) {
    FrameReader reader;
    auto passed = files(3);
    auto numbers = numbersOf(passed);
    feed(reader, std::span(frame).first(place));
    reader.append(std::span(frame).subspan(place, 1), std::move(passed));
    if (place + 1 < frame.size()) {
      EXPECT_FALSE(reader.next());
      EXPECT_EQ(reader.heldFileDescriptors(), 3u);
      reader.append(std::span(frame).subspan(place + 1));
    }
    auto message = reader.next();
    ASSERT_TRUE(message);
    EXPECT_EQ(reader.heldFileDescriptors(), 0u);
    for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(message->borrowFileDescriptor(i), numbers[i]);
  }
}

TEST(FrameReader, CollectsDescriptorsOfOneMessageFromSeveralReads) {
  const Bytes frame = frameWithDescriptors(3);
  for (std::size_t first = 1; first + 2 < frame.size(); ++first) {
    FrameReader reader;
    reader.append(std::span(frame).first(first), files(1));
    reader.append(std::span(frame).subspan(first, 1), files(1));
    EXPECT_FALSE(reader.next());
    reader.append(std::span(frame).subspan(first + 1), files(1));
    EXPECT_EQ(reader.next()->fileDescriptorCount(), 3u);
  }
}

TEST(FrameReader, LeavesDescriptorsToTheMessageThatAnnouncesThem) {
  // One read brings a message without descriptors and one with them, in whatever order.
  FrameReader reader;
  reader.append(joined({frameOf("none"), frameWithDescriptors(2), frameOf("none")}), files(2));
  EXPECT_EQ(reader.next()->fileDescriptorCount(), 0u);
  EXPECT_EQ(reader.next()->fileDescriptorCount(), 2u);
  EXPECT_EQ(reader.next()->fileDescriptorCount(), 0u);
  EXPECT_FALSE(reader.next());
}

TEST(FrameReader, GivesThePartOfANextMessageItsOwnDescriptors) {
  // As the kernel reads: the end of one message and the beginning of the next, which brings
  // descriptors.
  const Bytes first = frameWithDescriptors(1);
  const Bytes second = frameWithDescriptors(2);
  const Bytes stream = joined({first, second});
  auto early = files(1);
  auto late = files(2);
  auto numbers = numbersOf(late);
  FrameReader reader;
  reader.append(std::span(stream).first(20), std::move(early));
  EXPECT_FALSE(reader.next());
  reader.append(std::span(stream).subspan(20, first.size()), std::move(late));
  EXPECT_EQ(reader.next()->fileDescriptorCount(), 1u);
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(reader.heldFileDescriptors(), 2u);
  reader.append(std::span(stream).subspan(20 + first.size()));
  auto message = reader.next();
  EXPECT_EQ(message->borrowFileDescriptor(0), numbers[0]);
  EXPECT_EQ(message->borrowFileDescriptor(1), numbers[1]);
}

// ----- Descriptors that are withheld -------------------------------------------------------------

class Withholding : public testing::Test {
 protected:
  void read(std::span<const std::uint8_t> bytes) {
    std::ranges::copy(bytes, reader_.space().begin());
    reader_.receivedWithheld(bytes.size());
  }

  FileDescriptor standIn_{open("/dev/zero", O_RDONLY | O_CLOEXEC)};
  FrameReader reader_{{.standIn = standIn_.get()}};
};

TEST_F(Withholding, PutsTheStandInWhereAMessageAnnouncesOne) {
  read(frameWithDescriptors(3));
  auto message = reader_.next();
  ASSERT_EQ(message->fileDescriptorCount(), 3u);
  struct stat expected, actual;
  ASSERT_EQ(fstat(standIn_.get(), &expected), 0);
  for (std::uint32_t i = 0; i < 3; ++i) {
    ASSERT_EQ(fstat(message->borrowFileDescriptor(i), &actual), 0);
    EXPECT_EQ(actual.st_rdev, expected.st_rdev);
  }
  reader_.append(frameOf("none"));
  EXPECT_EQ(reader_.next()->fileDescriptorCount(), 0u);
}

TEST_F(Withholding, RemembersThemUntilTheMessageIsComplete) {
  auto frame = joined({frameOf("none"), frameWithDescriptors(1), frameWithDescriptors(2)});
  read(std::span(frame).first(100));
  EXPECT_EQ(feed(reader_, std::span(frame).subspan(100, 20)).size(), 1u);
  read(std::span(frame).subspan(120));
  EXPECT_EQ(reader_.next()->fileDescriptorCount(), 1u);
  EXPECT_EQ(reader_.next()->fileDescriptorCount(), 2u);
}

TEST_F(Withholding, RefusesWhatNoMessageAnnounces) {
  read(frameOf("none"));
  EXPECT_THROW(reader_.next(), ProtocolError);
}

TEST_F(Withholding, RefusesAnAnnouncementOfWhatDidNotCome) {
  read(frameWithDescriptors(1));
  EXPECT_TRUE(reader_.next());
  reader_.append(frameWithDescriptors(1));
  EXPECT_THROW(reader_.next(), ProtocolError);
}

TEST_F(Withholding, RefusesMoreThanOneMessageMayHave) {
  read(frameWithDescriptors(17));
  EXPECT_THROW(reader_.next(), ProtocolError);
}

struct Refused : testing::Test {
  // Expects a ProtocolError and all the descriptors closed.
  void expectRefused(FrameReader& reader, std::span<const std::uint8_t> bytes, int count) {
    auto passed = files(count);
    auto numbers = numbersOf(passed);
    auto steps = [&] {
      reader.append(bytes, std::move(passed));
      while (reader.next()) {
      }
    };
    EXPECT_THROW(steps(), ProtocolError);
    EXPECT_EQ(reader.heldFileDescriptors(), 0u);
    EXPECT_TRUE(areAllClosed(numbers));
  }
};

using FrameReaderClosesDescriptors = Refused;

TEST_F(FrameReaderClosesDescriptors, ThatNoMessageAnnounces) {
  FrameReader reader;
  expectRefused(reader, frameOf("x"), 1);
}

TEST_F(FrameReaderClosesDescriptors, ThatAreFewerThanAnnounced) {
  FrameReader reader;
  expectRefused(reader, frameWithDescriptors(3), 2);
}

TEST_F(FrameReaderClosesDescriptors, ThatAreMoreThanAnnounced) {
  FrameReader reader;
  expectRefused(reader, frameWithDescriptors(3), 4);
}

TEST_F(FrameReaderClosesDescriptors, ThatCameWithTheMessageBefore) {
  const Bytes plain = frameOf("x");
  FrameReader reader;
  reader.append(std::span(plain).first(10), files(1));
  EXPECT_FALSE(reader.next());
  expectRefused(reader, joined({Bytes(plain.begin() + 10, plain.end()), frameWithDescriptors(1)}),
                0);
}

TEST_F(FrameReaderClosesDescriptors, ThatComeWithTheMessageBehind) {
  FrameReader reader;
  reader.append(frameWithDescriptors(1));
  EXPECT_THROW(reader.next(), ProtocolError);
}

TEST_F(FrameReaderClosesDescriptors, ThatAreTooManyForAnUnfinishedMessage) {
  const Bytes frame = frameWithDescriptors(17);
  FrameReader reader;
  reader.append(std::span(frame).first(20), files(16));
  EXPECT_FALSE(reader.next());
  expectRefused(reader, std::span(frame).subspan(20, 1), 1);
}

TEST_F(FrameReaderClosesDescriptors, ThatAreTooManyForAMessage) {
  FrameReader reader;
  expectRefused(reader, frameWithDescriptors(17), 17);
  FrameReader allowed;
  allowed.append(frameWithDescriptors(16), files(16));
  EXPECT_EQ(allowed.next()->fileDescriptorCount(), 16u);
}

TEST_F(FrameReaderClosesDescriptors, ThatWereNotNegotiated) {
  FrameReader reader({.fileDescriptors = 0});
  expectRefused(reader, frameOf("x"), 1);
  FrameReader other({.fileDescriptors = 0});
  expectRefused(other, frameWithDescriptors(1), 0);
}

TEST_F(FrameReaderClosesDescriptors, ThatCameWithNoByte) {
  FrameReader reader;
  expectRefused(reader, {}, 1);
}

TEST_F(FrameReaderClosesDescriptors, OfAnUnfinishedMessageWhenItIsDestroyed) {
  auto passed = files(2);
  auto numbers = numbersOf(passed);
  {
    FrameReader reader;
    const Bytes frame = frameOf("x");
    reader.append(std::span(frame).first(5), std::move(passed));
    EXPECT_FALSE(reader.next());
    EXPECT_EQ(reader.heldFileDescriptors(), 2u);
  }
  EXPECT_TRUE(areAllClosed(numbers));
}

}  // namespace
}  // namespace hoist::dbus
