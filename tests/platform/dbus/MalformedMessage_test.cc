// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Each rule of D-Bus on frames has its case here: a frame that breaks only this one is refused with
// this rule's text.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <functional>

#include "RawFrame.h"

namespace hoist::dbus {
namespace {

using namespace std::string_literals;

constexpr auto kBothOrders = {RawFrame::kLittle, RawFrame::kBig};

// What is wrong with a call that has this body, the same in both byte orders.
std::string bodyComplaint(std::string_view signature, const std::function<void(RawFrame&)>& write) {
  std::string complaints[2];
  for (auto order : kBothOrders) {
    RawFrame body(order);
    write(body);
    complaints[order] = complaintAbout(rawCall(order, signature, body));
  }
  EXPECT_EQ(complaints[0], complaints[1]);
  return complaints[0];
}

// What is wrong with a message of this type and these fields (and the serial 7 and no body).
std::string fieldsComplaint(int type, const std::function<void(RawFrame&)>& write) {
  RawFrame fields(RawFrame::kLittle);
  write(fields);
  RawFrame frame(RawFrame::kLittle);
  frame.u8('l').u8(static_cast<std::uint8_t>(type)).u8(0).u8(1).u32(0).u32(7);
  frame.u32(static_cast<std::uint32_t>(fields.size()));
  frame.raw({reinterpret_cast<const char*>(fields.bytes().data()), fields.size()}).pad(8);
  return complaintAbout(frame.bytes());
}

RawFrame& field(RawFrame& frame, int code, std::string_view type) {
  return frame.pad(8).u8(static_cast<std::uint8_t>(code)).signature(type);
}

Bytes emptyCall() {
  return rawCall(RawFrame::kLittle, "", RawFrame(RawFrame::kLittle));
}

// An empty call with one byte changed.
std::string changedByteComplaint(std::size_t offset, std::uint8_t value) {
  Bytes frame = emptyCall();
  frame[offset] = value;
  return complaintAbout(frame);
}

TEST(MalformedMessage, TheUnchangedFramesAreFine) {
  EXPECT_EQ(complaintAbout(emptyCall()), "");
  EXPECT_EQ(bodyComplaint("s", [](auto& body) { body.string("x"); }), "");
}

TEST(MalformedMessage, FixedHeader) {
  EXPECT_EQ(changedByteComplaint(0, 'x'), "a message has no known byte order");
  EXPECT_EQ(changedByteComplaint(0, 'L'), "a message has no known byte order");
  EXPECT_EQ(changedByteComplaint(1, 0), "a message has the type 0");
  EXPECT_EQ(changedByteComplaint(3, 0), "a message has another protocol version");
  EXPECT_EQ(changedByteComplaint(3, 2), "a message has another protocol version");
  EXPECT_EQ(changedByteComplaint(8, 0), "a message has the serial 0");
}

TEST(MalformedMessage, LengthsThatDoNotFit) {
  EXPECT_EQ(complaintAbout({}), "a message is cut off");
  EXPECT_EQ(complaintAbout(Bytes(15, 1)), "a message is cut off");
  EXPECT_EQ(changedByteComplaint(4, 1), "a message is not as long as it says");
  EXPECT_EQ(changedByteComplaint(7, 0x08), "a message is longer than 128 MiB");
  EXPECT_EQ(changedByteComplaint(15, 0x05), "an array is longer than 64 MiB");
  Bytes frame = emptyCall();
  frame.push_back(0);
  EXPECT_EQ(complaintAbout(frame), "a message is not as long as it says");
  frame.resize(frame.size() - 2);
  EXPECT_EQ(complaintAbout(frame), "a message is not as long as it says");
}

TEST(MalformedMessage, UnknownTypesAndFlagsAreNoError) {
  EXPECT_EQ(changedByteComplaint(1, 200), "");
  EXPECT_EQ(changedByteComplaint(2, 0xFF), "");
}

TEST(MalformedMessage, HeaderPaddingThatIsNotZero) {
  Bytes frame = emptyCall();
  ASSERT_NE(frame[12] % 8, 0);  // there is padding behind the fields
  frame.back() = 1;
  EXPECT_EQ(complaintAbout(frame), "padding is not zero");
  EXPECT_EQ(fieldsComplaint(1,
                            [](auto& fields) {
                              field(fields, 1, "o").string("/").pad(8, 1);
                              field(fields, 3, "s").string("M");
                            }),
            "padding is not zero");
}

TEST(MalformedMessage, RequiredFields) {
  auto path = [](auto& fields) { field(fields, 1, "o").string("/"); };
  auto interface = [](auto& fields) { field(fields, 2, "s").string("a.b"); };
  auto member = [](auto& fields) { field(fields, 3, "s").string("M"); };
  auto errorName = [](auto& fields) { field(fields, 4, "s").string("a.b"); };
  auto replySerial = [](auto& fields) { field(fields, 5, "u").u32(1); };
  auto complaint = [](int type, auto... parts) {
    return fieldsComplaint(type, [&](auto& fields) { (parts(fields), ...); });
  };
  constexpr auto kCall = "a call has no path or no member";
  EXPECT_EQ(complaint(1), kCall);
  EXPECT_EQ(complaint(1, path, interface), kCall);
  EXPECT_EQ(complaint(1, interface, member), kCall);
  EXPECT_EQ(complaint(1, path, member), "");
  EXPECT_EQ(complaint(2), "an answer has no reply serial");
  EXPECT_EQ(complaint(2, replySerial), "");
  constexpr auto kError = "an error has no reply serial or no name";
  EXPECT_EQ(complaint(3, replySerial), kError);
  EXPECT_EQ(complaint(3, errorName), kError);
  EXPECT_EQ(complaint(3, errorName, replySerial), "");
  constexpr auto kSignal = "a signal has no path, interface or member";
  EXPECT_EQ(complaint(4, path, member), kSignal);
  EXPECT_EQ(complaint(4, path, interface), kSignal);
  EXPECT_EQ(complaint(4, interface, member), kSignal);
  EXPECT_EQ(complaint(4, path, interface, member), "");
  EXPECT_EQ(complaint(5), "");
}

TEST(MalformedMessage, FieldsWithWrongValues) {
  auto complaint = [](int code, const std::string& type,
                      const std::function<void(RawFrame&)>& value) {
    return fieldsComplaint(1, [&](RawFrame& fields) {
      if (code != 1) field(fields, 1, "o").string("/");
      if (code != 3) field(fields, 3, "s").string("M");
      value(field(fields, code, type));
    });
  };
  auto text = [](std::string_view value) {
    return [value](RawFrame& fields) { fields.string(value); };
  };
  constexpr auto kName = "a name in a header field is not valid";
  EXPECT_EQ(complaint(1, "o", text("/a/")), "an object path is not valid");
  EXPECT_EQ(complaint(1, "o", text("")), "an object path is not valid");
  EXPECT_EQ(complaint(2, "s", text("a")), kName);
  EXPECT_EQ(complaint(2, "s", text("")), kName);
  EXPECT_EQ(complaint(3, "s", text("a.b")), kName);
  EXPECT_EQ(complaint(4, "s", text("a")), kName);
  EXPECT_EQ(complaint(5, "u", [](auto& fields) { fields.u32(0); }), "a reply's serial is 0");
  EXPECT_EQ(complaint(6, "s", text("a")), kName);
  EXPECT_EQ(complaint(6, "s", text("")), kName);
  EXPECT_EQ(complaint(7, "s", text(":1")), kName);
  EXPECT_EQ(complaint(7, "s", text("a.b\0"s)), kName);
  EXPECT_EQ(complaint(8, "g", [](auto& fields) { fields.signature("a"); }),
            "a signature is not valid");
  EXPECT_EQ(complaint(9, "u", [](auto& fields) { fields.u32(1); }),
            "not as many descriptors came as were announced");
  EXPECT_EQ(complaint(0, "u", [](auto& fields) { fields.u32(1); }),
            "a header field has the code 0");
}

TEST(MalformedMessage, FieldsOfTheWrongType) {
  const std::string types = "osssussgu";
  for (int code = 1; code <= 9; ++code) {
    for (char type : "osgui"s) {
      if (type == types[code - 1]) continue;
      EXPECT_EQ(fieldsComplaint(5,
                                [&](RawFrame& fields) {
                                  field(fields, code, std::string(1, type));
                                  if (type == 'g') fields.signature("i");
                                  if (type == 'o') fields.string("/");
                                  if (type == 's') fields.string("a.b");
                                  if (type == 'u' || type == 'i') fields.u32(1);
                                }),
                "a header field has the wrong type")
          << code << type;
    }
  }
  EXPECT_EQ(
      fieldsComplaint(5, [](RawFrame& fields) { field(fields, 3, "ss").string("M").string("M"); }),
      "a header field has the wrong type");
  EXPECT_EQ(fieldsComplaint(5, [](RawFrame& fields) { field(fields, 3, "").u8(0); }),
            "a header field has the wrong type");
}

TEST(MalformedMessage, FieldsThatAppearTwice) {
  EXPECT_EQ(fieldsComplaint(1,
                            [](auto& fields) {
                              field(fields, 1, "o").string("/");
                              field(fields, 3, "s").string("M");
                              field(fields, 3, "s").string("M");
                            }),
            "a header field appears twice");
}

TEST(MalformedMessage, UnknownFieldsAreCheckedAndIgnored) {
  auto complaint = [](std::string_view type, const std::function<void(RawFrame&)>& value) {
    return fieldsComplaint(5, [&](RawFrame& fields) { value(field(fields, 77, type)); });
  };
  EXPECT_EQ(complaint("a(yv)", [](auto& f) { f.u32(5).pad(8).u8(1).signature("y").u8(1); }), "");
  EXPECT_EQ(complaint("b", [](auto& f) { f.u32(2); }), "a boolean is neither 0 nor 1");
  EXPECT_EQ(complaint("", [](auto&) {}), "a variant does not hold exactly one value");
  EXPECT_EQ(complaint("yy", [](auto& f) { f.u8(1).u8(1); }),
            "a variant does not hold exactly one value");
  EXPECT_EQ(complaint("a", [](auto& f) { f.u32(0); }), "a signature is not valid");
  EXPECT_EQ(complaint("as", [](auto& f) { f.pad(4, 1).u32(0); }), "padding is not zero");
}

TEST(MalformedMessage, FieldsThatReachBeyondTheirArray) {
  EXPECT_EQ(fieldsComplaint(5, [](auto& fields) { field(fields, 3, "s").u32(100).raw("M").u8(0); }),
            "a value reaches beyond its end");
  EXPECT_EQ(fieldsComplaint(5, [](auto& fields) { fields.u8(3); }),
            "a value reaches beyond its end");
  EXPECT_EQ(fieldsComplaint(5, [](auto& fields) { field(fields, 3, "s").u32(0xFFFFFFFF); }),
            "a value reaches beyond its end");
}

TEST(MalformedMessage, ReservedPathAndInterface) {
  EXPECT_EQ(fieldsComplaint(1,
                            [](auto& fields) {
                              field(fields, 1, "o").string("/org/freedesktop/DBus/Local");
                              field(fields, 3, "s").string("M");
                            }),
            "a reserved path or interface is used");
  EXPECT_EQ(fieldsComplaint(4,
                            [](auto& fields) {
                              field(fields, 1, "o").string("/");
                              field(fields, 2, "s").string("org.freedesktop.DBus.Local");
                              field(fields, 3, "s").string("Disconnected");
                            }),
            "a reserved path or interface is used");
}

TEST(MalformedMessage, BodyAndSignatureThatDoNotMatch) {
  EXPECT_EQ(bodyComplaint("", [](auto& body) { body.u8(0); }),
            "bytes are left over behind the last value");
  EXPECT_EQ(bodyComplaint("y", [](auto& body) { body.u8(0).u8(0); }),
            "bytes are left over behind the last value");
  EXPECT_EQ(bodyComplaint("y", [](auto&) {}), "a value reaches beyond its end");
  EXPECT_EQ(bodyComplaint("yu", [](auto& body) { body.u8(0); }), "a value reaches beyond its end");
  EXPECT_EQ(bodyComplaint("uu", [](auto& body) { body.u32(0).u16(0); }),
            "a value reaches beyond its end");
}

TEST(MalformedMessage, PaddingThatIsNotZero) {
  for (const auto& [type, multiple] : {std::pair{"n", 2},
                                       {"q", 2},
                                       {"b", 4},
                                       {"i", 4},
                                       {"u", 4},
                                       {"x", 8},
                                       {"t", 8},
                                       {"d", 8},
                                       {"s", 4},
                                       {"o", 4},
                                       {"ay", 4},
                                       {"(y)", 8}}) {
    EXPECT_EQ(
        bodyComplaint("y"s + type,
                      [size = multiple](auto& body) { body.u8(1).pad(size, 1).u64(0).u64(0); }),
        "padding is not zero")
        << type;
  }
  EXPECT_EQ(bodyComplaint("ax", [](auto& body) { body.u32(0).pad(8, 1); }), "padding is not zero");
  EXPECT_EQ(bodyComplaint(
                "a{yy}", [](auto& body) { body.u32(10).pad(8).u8(1).u8(1).pad(8, 1).u8(1).u8(1); }),
            "padding is not zero");
}

TEST(MalformedMessage, PaddingOfAnEmptyArrayThatIsMissing) {
  EXPECT_EQ(bodyComplaint("ax", [](auto& body) { body.u32(0); }), "a value reaches beyond its end");
}

TEST(MalformedMessage, Booleans) {
  EXPECT_EQ(bodyComplaint("bb", [](auto& body) { body.u32(0).u32(1); }), "");
  EXPECT_EQ(bodyComplaint("b", [](auto& body) { body.u32(2); }), "a boolean is neither 0 nor 1");
  EXPECT_EQ(bodyComplaint("b", [](auto& body) { body.u32(0x01000000); }),
            "a boolean is neither 0 nor 1");
  EXPECT_EQ(bodyComplaint("ab", [](auto& body) { body.u32(8).u32(1).u32(3); }),
            "a boolean is neither 0 nor 1");
}

TEST(MalformedMessage, Strings) {
  constexpr auto kText = "a string is not UTF-8 or holds a NUL";
  EXPECT_EQ(bodyComplaint("s", [](auto& body) { body.string("\xC3"); }), kText);
  EXPECT_EQ(bodyComplaint("s", [](auto& body) { body.string("a\0b"s); }), kText);
  EXPECT_EQ(bodyComplaint("as", [](auto& body) { body.u32(6).string("\xFF"); }), kText);
  EXPECT_EQ(bodyComplaint("v", [](auto& body) { body.signature("s").string("\xFF"); }), kText);
  EXPECT_EQ(bodyComplaint("s", [](auto& body) { body.u32(1).raw("ab"); }),
            "a text has no NUL at its end");
  EXPECT_EQ(bodyComplaint("s", [](auto& body) { body.u32(1).raw("a"); }),
            "a value reaches beyond its end");
  EXPECT_EQ(bodyComplaint("s", [](auto& body) { body.u32(0xFFFFFFFF).u32(0); }),
            "a value reaches beyond its end");
  EXPECT_EQ(bodyComplaint("s", [](auto& body) { body.u32(0); }), "a value reaches beyond its end");
}

TEST(MalformedMessage, ObjectPathsAndSignatures) {
  EXPECT_EQ(bodyComplaint("o", [](auto& body) { body.string(""); }), "an object path is not valid");
  EXPECT_EQ(bodyComplaint("o", [](auto& body) { body.string("/a//b"); }),
            "an object path is not valid");
  EXPECT_EQ(bodyComplaint("o", [](auto& body) { body.u32(1).raw("/x"); }),
            "a text has no NUL at its end");
  EXPECT_EQ(bodyComplaint("g", [](auto& body) { body.signature("a"); }),
            "a signature is not valid");
  EXPECT_EQ(bodyComplaint("g", [](auto& body) { body.signature("{sv}"); }),
            "a signature is not valid");
  EXPECT_EQ(bodyComplaint("g", [](auto& body) { body.u8(1).raw("ix"); }),
            "a text has no NUL at its end");
  EXPECT_EQ(bodyComplaint("g", [](auto& body) { body.u8(200).raw("i").u8(0); }),
            "a value reaches beyond its end");
}

TEST(MalformedMessage, Variants) {
  constexpr auto kOne = "a variant does not hold exactly one value";
  EXPECT_EQ(bodyComplaint("v", [](auto& body) { body.signature(""); }), kOne);
  EXPECT_EQ(bodyComplaint("v", [](auto& body) { body.signature("yy").u8(1).u8(1); }), kOne);
  EXPECT_EQ(bodyComplaint("v", [](auto& body) { body.signature("{sv}"); }),
            "a signature is not valid");
  EXPECT_EQ(bodyComplaint("v", [](auto& body) { body.signature("u"); }),
            "a value reaches beyond its end");
}

TEST(MalformedMessage, Arrays) {
  EXPECT_EQ(bodyComplaint("ay", [](auto& body) { body.u32(2).u8(1); }),
            "a value reaches beyond its end");
  EXPECT_EQ(bodyComplaint("ay", [](auto& body) { body.u32(0x04000001); }),
            "an array is longer than 64 MiB");
  EXPECT_EQ(bodyComplaint("ay", [](auto& body) { body.u32(0xFFFFFFFF); }),
            "an array is longer than 64 MiB");
  EXPECT_EQ(bodyComplaint("au", [](auto& body) { body.u32(3).u8(0).u8(0).u8(0); }),
            "an array ends inside an element");
  EXPECT_EQ(bodyComplaint("ab", [](auto& body) { body.u32(6).u32(0).u16(0); }),
            "a value reaches beyond its end");
  // The element fits the message but not its array.
  EXPECT_EQ(bodyComplaint("asu", [](auto& body) { body.u32(5).string("abcd").u32(0); }),
            "a value reaches beyond its end");
  EXPECT_EQ(bodyComplaint("aay", [](auto& body) { body.u32(6).u32(4).u32(0); }),
            "a value reaches beyond its end");
  EXPECT_EQ(bodyComplaint("a(yu)", [](auto& body) { body.u32(4).pad(8).u8(0).u32(0); }),
            "a value reaches beyond its end");
}

TEST(MalformedMessage, ContainersNestedTooDeep) {
  constexpr auto kDeep = "containers are nested too deep";
  auto variants = [](int count) {
    return bodyComplaint("v", [&](RawFrame& body) {
      for (int i = 1; i < count; ++i) body.signature("v");
      body.signature("y").u8(1);
    });
  };
  EXPECT_EQ(variants(64), "");
  EXPECT_EQ(variants(65), kDeep);
  // 32 arrays of arrays, the innermost with one struct of structs: what a signature may have just
  // fits.
  auto filled = [](char leaf, const std::function<void(RawFrame&)>& value) {
    std::string signature =
        std::string(32, 'a') + std::string(32, '(') + leaf + std::string(32, ')');
    return bodyComplaint(signature, [&](RawFrame& body) {
      RawFrame element(body.order());
      value(element);
      for (std::size_t inner = 32; inner-- > 0;) {
        body.u32(static_cast<std::uint32_t>(4 * inner + element.size()));
      }
      body.raw({reinterpret_cast<const char*>(element.bytes().data()), element.size()});
    });
  };
  EXPECT_EQ(filled('y', [](auto& element) { element.u8(1); }), "");
  EXPECT_EQ(filled('v', [](auto& element) { element.signature("y").u8(1); }), kDeep);
  EXPECT_EQ(bodyComplaint(std::string(33, 'a') + "y", [](auto&) {}), "a signature is not valid");
  EXPECT_EQ(bodyComplaint(std::string(33, '(') + "y" + std::string(33, ')'), [](auto&) {}),
            "a signature is not valid");
  // Any container may be the 64th, none the 65th.
  for (const std::string inner : {"ay", "(y)", "a{yy}"}) {
    for (int count : {63, 64}) {
      std::string complaint = bodyComplaint("v", [&](RawFrame& body) {
        for (int i = 1; i < count; ++i) body.signature("v");
        body.signature(inner);
        if (inner[0] == 'a') body.u32(0);
        if (inner != "ay") body.pad(8);
        if (inner[0] == '(') body.u8(1);
      });
      EXPECT_EQ(complaint, count == 63 ? "" : kDeep) << inner;
    }
  }
}

TEST(MalformedMessage, Descriptors) {
  auto files = [](int count) {
    FileDescriptors descriptors;
    for (int i = 0; i < count; ++i)
      descriptors.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    return descriptors;
  };
  auto complaint = [&](int announced, int passed, std::initializer_list<std::uint32_t> indices) {
    RawFrame extra(RawFrame::kLittle);
    field(extra, 9, "u").u32(static_cast<std::uint32_t>(announced));
    RawFrame body(RawFrame::kLittle);
    for (auto index : indices) body.u32(index);
    return complaintAbout(
        rawCall(RawFrame::kLittle, std::string(indices.size(), 'h'), body, &extra), files(passed));
  };
  constexpr auto kCount = "not as many descriptors came as were announced";
  constexpr auto kReferred = "the body does not refer to exactly the descriptors that came";
  EXPECT_EQ(complaint(0, 0, {}), "");
  EXPECT_EQ(complaint(2, 2, {1, 0}), "");
  EXPECT_EQ(complaint(1, 1, {0, 0}), "");
  EXPECT_EQ(complaint(1, 0, {0}), kCount);
  EXPECT_EQ(complaint(0, 1, {}), kCount);
  EXPECT_EQ(complaint(1, 2, {0}), kCount);
  EXPECT_EQ(complaint(1, 1, {}), kReferred);
  EXPECT_EQ(complaint(2, 2, {0, 0}), kReferred);
  EXPECT_EQ(complaint(1, 1, {1}), kReferred);
  EXPECT_EQ(complaint(0, 0, {0}), kReferred);
  EXPECT_EQ(complaint(1, 1, {0xFFFFFFFF}), "a descriptor's index is out of range");
  // More than one word of the set of indices.
  RawFrame extra(RawFrame::kLittle);
  field(extra, 9, "u").u32(130);
  RawFrame body(RawFrame::kLittle);
  body.u32(130 * 4);
  for (std::uint32_t i = 0; i < 130; ++i) body.u32(i);
  EXPECT_EQ(complaintAbout(rawCall(RawFrame::kLittle, "ah", body, &extra), files(130)), "");
}

TEST(MalformedMessage, ItsDescriptorsAreClosed) {
  FileDescriptors descriptors;
  descriptors.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  int fd = descriptors[0].get();
  EXPECT_NE(complaintAbout(emptyCall(), std::move(descriptors)), "");
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

}  // namespace
}  // namespace hoist::dbus
