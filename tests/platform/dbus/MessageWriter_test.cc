// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Whatever a program does wrong with a writer, it throws and nothing wrong is sent.
#include "platform/dbus/MessageWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <functional>

namespace hoist::dbus {
namespace {

using namespace std::string_literals;

Header call(std::string_view signature) {
  return methodCall("/", "a.b", "M", signature);
}

// The text of the EncodingError, or "" if a message was made.
std::string complaint(
    const Header& header, const std::function<void(MessageWriter&)>& write = [](auto&) {}) {
  try {
    MessageWriter writer(header);
    write(writer);
    Message::parse(writer.finish().bytes);
    return "";
  } catch (const EncodingError& error) {
    return error.what();
  }
}

TEST(MessageWriter, RefusesValuesThatTheSignatureDoesNotHave) {
  constexpr auto kNot = " is not what the signature has here";
  EXPECT_EQ(complaint(call("s"), [](auto& w) { w.appendInt32(1); }), "a value of type i"s + kNot);
  EXPECT_EQ(complaint(call(""), [](auto& w) { w.appendByte(1); }), "a value of type y"s + kNot);
  EXPECT_EQ(complaint(call("y"), [](auto& w) { w.appendByte(1), w.appendByte(1); }),
            "a value of type y"s + kNot);
  EXPECT_EQ(complaint(call("as"), [](auto& w) { w.openArray(), w.appendUInt32(1); }),
            "a value of type u"s + kNot);
  EXPECT_EQ(complaint(call("au"), [](auto& w) { w.appendBytes({}); }), "a value of type y"s + kNot);
  EXPECT_EQ(complaint(call("a{sv}"), [](auto& w) { w.openArray(), w.openStruct(); }),
            "a value of type ("s + kNot);
  EXPECT_EQ(complaint(call("(s)"), [](auto& w) { w.openDictEntry(); }),
            "a value of type {"s + kNot);
  EXPECT_EQ(complaint(call("v"), [](auto& w) { w.openVariant("s"), w.appendByte(1); }),
            "a value of type y"s + kNot);
  EXPECT_EQ(complaint(call("(s)"),
                      [](auto& w) { w.openStruct(), w.appendString(""), w.appendString(""); }),
            "a value of type s"s + kNot);
}

TEST(MessageWriter, RefusesToLeaveValuesOut) {
  EXPECT_EQ(complaint(call("s")), "the message is finished before its last value");
  EXPECT_EQ(complaint(call("as"), [](auto& w) { w.openArray(); }),
            "the message is finished before its last value");
  EXPECT_EQ(complaint(call("(s)"), [](auto& w) { w.openStruct(), w.close(); }),
            "a container is closed before its last value");
  EXPECT_EQ(complaint(call("v"), [](auto& w) { w.openVariant("s"), w.close(); }),
            "a container is closed before its last value");
  EXPECT_EQ(complaint(call(""), [](auto& w) { w.close(); }), "no container is open");
}

TEST(MessageWriter, RefusesValuesThatAreNotValid) {
  EXPECT_EQ(complaint(call("s"), [](auto& w) { w.appendString("\xFF"); }),
            "a string is not UTF-8 or holds a NUL");
  EXPECT_EQ(complaint(call("s"), [](auto& w) { w.appendString("\0"s); }),
            "a string is not UTF-8 or holds a NUL");
  EXPECT_EQ(complaint(call("o"), [](auto& w) { w.appendObjectPath("a"); }),
            "an object path is not valid");
  EXPECT_EQ(complaint(call("g"), [](auto& w) { w.appendSignature("a"); }),
            "a signature is not valid");
  EXPECT_EQ(complaint(call("v"), [](auto& w) { w.openVariant("ss"); }),
            "a variant's signature is not one complete type");
  EXPECT_EQ(complaint(call("h"), [](auto& w) { w.appendFileDescriptor({}); }),
            "there is no descriptor");
  EXPECT_EQ(complaint(call("a")), "the signature is not valid");
}

TEST(MessageWriter, RefusesHeadersThatAreNotValid) {
  auto with = [](auto change, MessageType type = MessageType::kMethodCall) {
    Header header = call("");
    header.type = type;
    header.replySerial = type == MessageType::kMethodReturn || type == MessageType::kError ? 1 : 0;
    change(header);
    return complaint(header);
  };
  EXPECT_EQ(with([](auto& h) { h.path = ""; }), "the object path is missing or not valid");
  EXPECT_EQ(with([](auto& h) { h.path = "/a/"; }), "the object path is missing or not valid");
  EXPECT_EQ(with([](auto& h) { h.interface = "a"; }), "the interface is missing or not valid");
  EXPECT_EQ(with([](auto& h) { h.interface = ""; }), "");
  EXPECT_EQ(with([](auto& h) { h.interface = ""; }, MessageType::kSignal),
            "the interface is missing or not valid");
  EXPECT_EQ(with([](auto&) {}, MessageType::kSignal), "");
  EXPECT_EQ(with([](auto& h) { h.member = ""; }), "the member is missing or not valid");
  EXPECT_EQ(with([](auto& h) { h.member = "a b"; }), "the member is missing or not valid");
  EXPECT_EQ(with([](auto& h) { h.destination = "x"; }), "the destination is not valid");
  EXPECT_EQ(with([](auto& h) { h.sender = "x"; }), "the sender is not valid");
  EXPECT_EQ(with([](auto&) {}, MessageType::kError), "the error's name is missing or not valid");
  EXPECT_EQ(with([](auto& h) { h.errorName = "a.b"; }, MessageType::kError), "");
  EXPECT_EQ(with([](auto& h) { h.replySerial = 0; }, MessageType::kMethodReturn),
            "the reply's serial is missing");
}

TEST(MessageWriter, RefusesMessagesAndArraysThatAreTooLong) {
  std::string text(200, 'x');
  MessageWriter small(call("as"), 400);
  small.openArray();
  small.appendString(text);
  EXPECT_THROW(small.appendString(text), EncodingError);
  MessageWriter other(call("ay"), 512);
  EXPECT_THROW(other.appendBytes(Bytes(600)), EncodingError);

  Bytes longest(kMaximumArraySize + 1);
  EXPECT_EQ(complaint(call("ay"), [&](auto& w) { w.appendBytes(longest); }),
            "an array is longer than 64 MiB");
}

TEST(MessageWriter, RefusesContainersNestedTooDeep) {
  auto variants = [](int count) {
    return complaint(call("v"), [&](MessageWriter& writer) {
      for (int i = 1; i < count; ++i) writer.openVariant("v");
      writer.openVariant("y");
      writer.appendByte(1);
      for (int i = 0; i < count; ++i) writer.close();
    });
  };
  EXPECT_EQ(variants(64), "");
  EXPECT_EQ(variants(65), "containers are nested too deep");
}

TEST(MessageWriter, TakesAsManyDescriptorsAsTheKernelPasses) {
  MessageWriter writer(call("ah"));
  writer.openArray();
  FileDescriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
  for (int i = 0; i < 253; ++i) writer.appendFileDescriptor(FileDescriptor::duplicate(file.get()));
  EXPECT_THROW(writer.appendFileDescriptor(std::move(file)), EncodingError);
}

TEST(MessageWriter, ShowsWhatTheSignatureHasHere) {
  MessageWriter writer(call("ya{sv}"));
  EXPECT_EQ(writer.peekType(), 'y');
  writer.appendByte(1);
  EXPECT_EQ(writer.peekSignature(), "a{sv}");
  writer.openArray();
  EXPECT_EQ(writer.peekSignature(), "{sv}");
  writer.close();
  EXPECT_EQ(writer.peekSignature(), "");
  EXPECT_EQ(writer.peekType(), 0);
}

}  // namespace
}  // namespace hoist::dbus
