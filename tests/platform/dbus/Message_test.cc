// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "RawFrame.h"
#include "platform/dbus/MessageReader.h"
#include "platform/dbus/MessageWriter.h"

namespace hoist::dbus {
namespace {

using namespace std::string_literals;

Message roundTrip(MessageWriter& writer) {
  OutgoingMessage sent = writer.finish(42);
  return Message::parse(std::move(sent.bytes), std::move(sent.descriptors));
}

Header call(std::string_view signature) {
  return methodCall("/", "a.b", "M", signature);
}

FileDescriptor someFile() {
  return FileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

// Every basic type at its bounds, in the order of kEverything.
constexpr std::string_view kEverything = "ybnqiuxtdsog";

void expectEverything(Message& message) {
  MessageReader reader(message);
  EXPECT_EQ(reader.readByte(), 255);
  EXPECT_TRUE(reader.readBoolean());
  EXPECT_EQ(reader.readInt16(), -32768);
  EXPECT_EQ(reader.readUInt16(), 0xABCD);
  EXPECT_EQ(reader.readInt32(), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(reader.readUInt32(), 0x89ABCDEF);
  EXPECT_EQ(reader.readInt64(), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(reader.readUInt64(), 0x0123456789ABCDEF);
  EXPECT_EQ(reader.readDouble(), -2.5e300);
  EXPECT_EQ(reader.readString(), "Grüße \xF0\x9F\x98\x80");
  EXPECT_EQ(reader.readObjectPath(), "/a/b_1");
  EXPECT_EQ(reader.readSignature(), "a{sv}(ii)");
  EXPECT_EQ(reader.peekType(), 0);
  reader.finish();
}

TEST(Message, CarriesEveryBasicTypeFromWriterToReader) {
  MessageWriter writer(call(kEverything));
  writer.appendByte(255);
  writer.appendBoolean(true);
  writer.appendInt16(-32768);
  writer.appendUInt16(0xABCD);
  writer.appendInt32(std::numeric_limits<std::int32_t>::min());
  writer.appendUInt32(0x89ABCDEF);
  writer.appendInt64(std::numeric_limits<std::int64_t>::min());
  writer.appendUInt64(0x0123456789ABCDEF);
  writer.appendDouble(-2.5e300);
  writer.appendString("Grüße \xF0\x9F\x98\x80");
  writer.appendObjectPath("/a/b_1");
  writer.appendSignature("a{sv}(ii)");
  Message message = roundTrip(writer);
  EXPECT_FALSE(message.swapped());
  EXPECT_EQ(message.serial(), 42u);
  expectEverything(message);
}

TEST(Message, ReadsEveryBasicTypeInBothByteOrders) {
  for (auto order : {RawFrame::kLittle, RawFrame::kBig}) {
    RawFrame body(order);
    body.u8(255).u32(1).u16(0x8000).u16(0xABCD).u32(0x80000000).u32(0x89ABCDEF);
    body.u64(0x8000000000000000).u64(0x0123456789ABCDEF).f64(-2.5e300);
    body.string("Grüße \xF0\x9F\x98\x80").string("/a/b_1").signature("a{sv}(ii)");
    Message message = Message::parse(rawCall(order, kEverything, body));
    EXPECT_EQ(message.swapped(),
              order == RawFrame::kBig);  // the tests run on little-endian machines
    EXPECT_EQ(message.serial(), 7u);
    expectEverything(message);
  }
}

TEST(Message, WriterAndAnIndependentEncoderMakeTheSameBody) {
  MessageWriter writer(call("a(yv)a{sax}d"));
  writer.openArray();
  writer.openStruct();
  writer.appendByte(1);
  writer.openVariant("n");
  writer.appendInt16(-2);
  writer.close();
  writer.close();
  writer.close();
  writer.openArray();
  writer.openDictEntry();
  writer.appendString("key");
  writer.openArray();
  writer.appendInt64(3);
  writer.close();
  writer.close();
  writer.close();
  writer.appendDouble(0.5);

  RawFrame body(RawFrame::kLittle);
  body.u32(6).pad(8).u8(1).signature("n").u16(0xFFFE);
  body.u32(24).pad(8).string("key").u32(8).pad(8).u64(3);
  body.f64(0.5);
  Bytes expected = rawCall(RawFrame::kLittle, "a(yv)a{sax}d", body);
  OutgoingMessage message = writer.finish(7);
  Message ours = Message::parse(message.bytes);
  Message theirs = Message::parse(expected);
  EXPECT_TRUE(std::ranges::equal(ours.frame().subspan(ours.bodyOffset()),
                                 theirs.frame().subspan(theirs.bodyOffset())));
}

TEST(Message, CarriesContainersInContainers) {
  MessageWriter writer(call("a{sv}a(ia{us})aasv"));
  writer.openArray();
  for (const char* key : {"one", "two"}) {
    writer.openDictEntry();
    writer.appendString(key);
    writer.openVariant("av");
    writer.openArray();
    writer.openVariant("s");
    writer.appendString(key);
    writer.close();
    writer.openVariant("(bd)");
    writer.openStruct();
    writer.appendBoolean(false);
    writer.appendDouble(1.5);
    writer.close();
    writer.close();
    writer.close();
    writer.close();
    writer.close();
  }
  writer.close();
  writer.openArray();
  writer.openStruct();
  writer.appendInt32(-1);
  writer.openArray();
  writer.openDictEntry();
  writer.appendUInt32(9);
  writer.appendString("nine");
  writer.close();
  writer.close();
  writer.close();
  writer.close();
  writer.openArray();
  std::vector<std::string> names{"a", "", "ccc"};
  writer.appendStrings(names);
  writer.appendStrings({});
  writer.close();
  writer.openVariant("ay");
  writer.appendBytes(std::array<std::uint8_t, 3>{1, 2, 3});
  writer.close();

  Message message = roundTrip(writer);
  MessageReader reader(message);
  EXPECT_EQ(reader.peekSignature(), "a{sv}");
  reader.enterArray();
  for (const char* key : {"one", "two"}) {
    ASSERT_TRUE(reader.hasMore());
    EXPECT_EQ(reader.peekSignature(), "{sv}");
    reader.enterDictEntry();
    EXPECT_EQ(reader.readString(), key);
    EXPECT_EQ(reader.enterVariant(), "av");
    reader.enterArray();
    EXPECT_EQ(reader.enterVariant(), "s");
    EXPECT_EQ(reader.readString(), key);
    reader.leave();
    EXPECT_EQ(reader.enterVariant(), "(bd)");
    reader.enterStruct();
    EXPECT_FALSE(reader.readBoolean());
    EXPECT_EQ(reader.readDouble(), 1.5);
    reader.leave();
    reader.leave();
    EXPECT_FALSE(reader.hasMore());
    reader.leave();
    reader.leave();
    reader.leave();
  }
  reader.leave();
  reader.enterArray();
  reader.enterStruct();
  EXPECT_EQ(reader.readInt32(), -1);
  reader.enterArray();
  reader.enterDictEntry();
  EXPECT_EQ(reader.readUInt32(), 9u);
  EXPECT_EQ(reader.readString(), "nine");
  reader.leave();
  reader.leave();
  reader.leave();
  reader.leave();
  reader.enterArray();
  reader.enterArray();
  for (const auto& name : names) EXPECT_EQ(reader.readString(), name);
  reader.leave();
  reader.enterArray();
  EXPECT_FALSE(reader.hasMore());
  EXPECT_EQ(reader.peekSignature(), "");
  reader.leave();
  reader.leave();
  EXPECT_EQ(reader.enterVariant(), "ay");
  auto bytes = reader.readBytes();
  EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), (Bytes{1, 2, 3}));
  reader.leave();
  reader.finish();
}

TEST(Message, CarriesArraysOfEveryElementAlignmentEmptyAndNot) {
  for (char type : "ybnqiuxtdsogv"s) {
    for (int count : {0, 1, 3}) {
      std::string signature = std::string("ya") + type + "y";
      MessageWriter writer(call(signature));
      writer.appendByte(1);
      writer.openArray();
      for (int i = 0; i < count; ++i) {
        switch (type) {
          case 'y':
            writer.appendByte(1);
            break;
          case 'b':
            writer.appendBoolean(true);
            break;
          case 'n':
            writer.appendInt16(1);
            break;
          case 'q':
            writer.appendUInt16(1);
            break;
          case 'i':
            writer.appendInt32(1);
            break;
          case 'u':
            writer.appendUInt32(1);
            break;
          case 'x':
            writer.appendInt64(1);
            break;
          case 't':
            writer.appendUInt64(1);
            break;
          case 'd':
            writer.appendDouble(1);
            break;
          case 's':
            writer.appendString("1");
            break;
          case 'o':
            writer.appendObjectPath("/");
            break;
          case 'g':
            writer.appendSignature("i");
            break;
          case 'v':
            writer.openVariant("i");
            writer.appendInt32(1);
            writer.close();
        }
      }
      writer.close();
      writer.appendByte(2);
      Message message = roundTrip(writer);
      MessageReader reader(message);
      EXPECT_EQ(reader.readByte(), 1);
      reader.enterArray();
      int found = 0;
      for (; reader.hasMore(); ++found) reader.skip();
      EXPECT_EQ(found, count) << signature;
      reader.leave();
      EXPECT_EQ(reader.readByte(), 2) << signature;
      reader.finish();
    }
  }
}

TEST(Message, KeepsItsHeaderAndItsTextsWhenItIsMoved) {
  Header header = call("s");
  header.destination = "com.kelvo.hoist";
  header.sender = ":1.7";
  header.flags = kNoReplyExpected;
  MessageWriter writer(header);
  writer.appendString("text");
  Message first = roundTrip(writer);
  Message message = std::move(first);
  EXPECT_EQ(message.type(), MessageType::kMethodCall);
  EXPECT_EQ(message.path(), "/");
  EXPECT_EQ(message.interface(), "a.b");
  EXPECT_EQ(message.member(), "M");
  EXPECT_EQ(message.destination(), "com.kelvo.hoist");
  EXPECT_EQ(message.sender(), ":1.7");
  EXPECT_EQ(message.signature(), "s");
  EXPECT_FALSE(message.replyExpected());
  MessageReader reader(message);
  EXPECT_EQ(reader.readString(), "text");
}

TEST(Message, CarriesDescriptorsByIndex) {
  MessageWriter writer(call("hvah"));
  std::vector<int> numbers;
  auto append = [&] {
    FileDescriptor file = someFile();
    numbers.push_back(file.get());
    writer.appendFileDescriptor(std::move(file));
  };
  append();
  writer.openVariant("h");
  append();
  writer.close();
  writer.openArray();
  append();
  writer.close();
  Message message = roundTrip(writer);
  EXPECT_EQ(message.fileDescriptorCount(), 3u);
  EXPECT_EQ(message.borrowFileDescriptor(2), numbers[2]);
  MessageReader reader(message);
  EXPECT_EQ(reader.readFileDescriptor().get(), numbers[0]);
  reader.enterVariant();
  EXPECT_EQ(reader.readFileDescriptor().get(), numbers[1]);
  reader.leave();
  reader.enterArray();
  EXPECT_EQ(reader.readFileDescriptor().get(), numbers[2]);
  reader.leave();
  reader.finish();
  EXPECT_THROW(message.takeFileDescriptor(0), TypeError);
  EXPECT_THROW(message.borrowFileDescriptor(3), TypeError);
}

TEST(Message, AnswersAndErrorsReferToTheirCall) {
  MessageWriter callWriter(call(""));
  Message received = roundTrip(callWriter);
  EXPECT_TRUE(received.replyExpected());
  MessageWriter answerWriter(methodReturn(received, "u"));
  answerWriter.appendUInt32(5);
  Message answer = roundTrip(answerWriter);
  EXPECT_EQ(answer.type(), MessageType::kMethodReturn);
  EXPECT_EQ(answer.replySerial(), 42u);
  EXPECT_FALSE(answer.replyExpected());
  EXPECT_EQ(answer.errorText(), "");

  OutgoingMessage sent = makeError(42, "a.b.Error", "what \xFF was\0wrong"s);
  sent.setSerial(9);
  EXPECT_EQ(sent.serial(), 9u);
  Message error = Message::parse(std::move(sent.bytes));
  EXPECT_EQ(error.serial(), 9u);
  EXPECT_EQ(error.replySerial(), 42u);
  EXPECT_EQ(error.errorName(), "a.b.Error");
  EXPECT_EQ(error.errorText(), "what \uFFFD was\uFFFDwrong");
  OutgoingMessage longError =
      makeError(1, "a.b", std::string(4095, 'x') + "ü" + std::string(100, 'y'));
  EXPECT_EQ(Message::parse(std::move(longError.bytes)).errorText(),
            std::string(4095, 'x') + "\uFFFD");
}

TEST(Message, AnErrorWithoutTextHasNone) {
  Header header = errorReply(3, "a.b");
  header.signature = "us";
  MessageWriter writer(header);
  writer.appendUInt32(1);
  writer.appendString("not the first value");
  EXPECT_EQ(roundTrip(writer).errorText(), "");
}

TEST(MessageReader, ThrowsWhenAskedForWhatIsNotThere) {
  MessageWriter writer(call("sa{sv}(i)"));
  writer.appendString("x");
  writer.openArray();
  writer.openDictEntry();
  writer.appendString("k");
  writer.openVariant("i");
  writer.appendInt32(1);
  writer.close();
  writer.close();
  writer.close();
  writer.openStruct();
  writer.appendInt32(1);
  writer.close();
  Message message = roundTrip(writer);

  auto expectTypeError = [&](auto&& steps) {
    MessageReader reader(message);
    EXPECT_THROW(steps(reader), TypeError);
  };
  expectTypeError([](auto& reader) { reader.readInt32(); });
  expectTypeError([](auto& reader) { reader.readObjectPath(); });
  expectTypeError([](auto& reader) { reader.enterArray(); });
  expectTypeError([](auto& reader) { reader.leave(); });
  expectTypeError([](auto& reader) { reader.finish(); });
  expectTypeError([](auto& reader) { reader.skip(), reader.readBytes(); });
  expectTypeError([](auto& reader) { reader.skip(), reader.enterArray(), reader.leave(); });
  expectTypeError(
      [](auto& reader) { reader.skip(), reader.enterArray(), reader.skip(), reader.readString(); });
  expectTypeError(
      [](auto& reader) { reader.skip(), reader.skip(), reader.skip(), reader.readString(); });
  expectTypeError([](auto& reader) { reader.skip(), reader.skip(), reader.skip(), reader.skip(); });
  expectTypeError(
      [](auto& reader) { reader.skip(), reader.skip(), reader.enterStruct(), reader.finish(); });
}

TEST(MessageReader, SkipsAnyValue) {
  MessageWriter writer(call("y(sgova(yx)d)ayu"));
  writer.appendByte(1);
  writer.openStruct();
  writer.appendString("text");
  writer.appendSignature("ai");
  writer.appendObjectPath("/x");
  writer.openVariant("(yas)");
  writer.openStruct();
  writer.appendByte(1);
  writer.appendStrings(std::array<std::string, 2>{"a", "b"});
  writer.close();
  writer.close();
  writer.openArray();
  for (int i = 0; i < 3; ++i) {
    writer.openStruct();
    writer.appendByte(1);
    writer.appendInt64(2);
    writer.close();
  }
  writer.close();
  writer.appendDouble(1);
  writer.close();
  writer.appendBytes(std::array<std::uint8_t, 1>{7});
  writer.appendUInt32(77);
  Message message = roundTrip(writer);
  MessageReader reader(message);
  reader.skip();
  reader.skip();
  reader.skip();
  EXPECT_EQ(reader.readUInt32(), 77u);
  reader.finish();
}

}  // namespace
}  // namespace hoist::dbus
