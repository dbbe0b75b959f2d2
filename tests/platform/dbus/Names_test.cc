// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/dbus/Names.h"

#include <gtest/gtest.h>

#include "platform/dbus/Guid.h"

namespace hoist::dbus {
namespace {

using namespace std::string_literals;

TEST(Names, AcceptTextThatIsUtf8) {
  for (const std::string& text :
       {""s, "plain"s, "exactly 8"s.substr(0, 8), "Grüße, 日本, \xF0\x9F\x98\x80"s, "\x7F"s,
        "\x01"s, "\xC2\x80"s, "\xDF\xBF"s, "\xE0\xA0\x80"s, "\xED\x9F\xBF"s, "\xEE\x80\x80"s,
        "\xEF\xBF\xBF"s, "\xF0\x90\x80\x80"s, "\xF4\x8F\xBF\xBF"s}) {
    EXPECT_TRUE(isValidText(text)) << text;
    EXPECT_EQ(mendedText(text), text);
  }
}

TEST(Names, RefuseTextThatIsNotUtf8OrHoldsANul) {
  struct Case {
    std::string text;
    std::string mended;
  };
  for (const Case& c : {
           Case{"\0"s, "\uFFFD"},
           {"abcdefg\0"s, "abcdefg\uFFFD"},
           {"\x80", "\uFFFD"},                                // continuation without a lead
           {"\xC3", "\uFFFD"},                                // cut off
           {"\xE2\x82", "\uFFFD\uFFFD"},                      // cut off
           {"\xF0\x9F\x98", "\uFFFD\uFFFD\uFFFD"},            // cut off
           {"\xC0\x80", "\uFFFD\uFFFD"},                      // overlong NUL
           {"\xC1\xBF", "\uFFFD\uFFFD"},                      // overlong
           {"\xE0\x9F\xBF", "\uFFFD\uFFFD\uFFFD"},            // overlong
           {"\xF0\x8F\xBF\xBF", "\uFFFD\uFFFD\uFFFD\uFFFD"},  // overlong
           {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},            // surrogate
           {"\xED\xBF\xBF", "\uFFFD\uFFFD\uFFFD"},            // surrogate
           {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},  // above U+10FFFF
           {"\xF5\x80\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
           {"\xFF", "\uFFFD"},
           {"\xE2\x28\xA1", "\uFFFD(\uFFFD"},
           {"\xC3(", "\uFFFD("},
       }) {
    EXPECT_FALSE(isValidText(c.text));
    EXPECT_EQ(mendedText(c.text), c.mended);
    EXPECT_FALSE(isValidText("before and " + c.text + " behind"));
  }
}

TEST(Names, FindAWrongByteWhereverItStands) {
  for (std::size_t size = 1; size < 40; ++size) {
    for (std::size_t place = 0; place < size; ++place) {
      for (char wrong : {'\0', '\x80', '\xFF'}) {
        std::string text(size, 'x');
        text[place] = wrong;
        EXPECT_FALSE(isValidText(text)) << size << " " << place;
      }
    }
  }
}

TEST(Names, KnowObjectPaths) {
  for (const std::string& path :
       {"/"s, "/a"s, "/a/b"s, "/_1/A"s, "/0"s, "/" + std::string(9999, 'x')}) {
    EXPECT_TRUE(isValidObjectPath(path)) << path;
  }
  for (const std::string& path :
       {""s, "a"s, "//"s, "/a/"s, "/a//b"s, "/a-b"s, "/a.b"s, "/ü"s, "/a\0"s, "/a "s}) {
    EXPECT_FALSE(isValidObjectPath(path)) << path;
  }
}

TEST(Names, KnowInterfaceAndErrorNames) {
  std::string longest = "a." + std::string(253, 'b');
  for (const std::string& name : {"a.b"s, "com.kelvo.TesselHoisting"s, "_._"s, "A1.B2"s, longest}) {
    EXPECT_TRUE(isValidInterfaceName(name)) << name;
    EXPECT_TRUE(isValidErrorName(name)) << name;
  }
  for (const std::string& name : {""s, "a"s, ".a.b"s, "a.b."s, "a..b"s, "1a.b"s, "a.1b"s, "a-b.c"s,
                                  "a.b c"s, ":1.2"s, "a.ü"s, "a.b\0"s, longest + "b"}) {
    EXPECT_FALSE(isValidInterfaceName(name)) << name;
    EXPECT_FALSE(isValidErrorName(name)) << name;
  }
}

TEST(Names, KnowMembers) {
  for (const std::string& name :
       {"M"s, "_"s, "a1"s, "launchPrivilegedHelper_commandName_flags_reply_"s,
        std::string(255, 'x')}) {
    EXPECT_TRUE(isValidMemberName(name)) << name;
  }
  for (const std::string& name :
       {""s, "1a"s, "a.b"s, "a-b"s, "a:"s, "a\0"s, "é"s, std::string(256, 'x')}) {
    EXPECT_FALSE(isValidMemberName(name)) << name;
  }
}

TEST(Names, KnowBusNames) {
  for (const std::string& name :
       {"com.kelvo.hoist"s, "a-b.c-d"s, "-.-"s, ":1.42"s, ":a-1.0.5"s, "_a.b"s}) {
    EXPECT_TRUE(isValidBusName(name)) << name;
  }
  for (const std::string& name : {""s, "a"s, ":"s, ":1"s, "1.2"s, "a.1"s, "a..b"s, ".a.b"s, ":1."s,
                                  ":.1"s, "a.b:c"s, "a.b\0"s, "a." + std::string(254, 'b')}) {
    EXPECT_FALSE(isValidBusName(name)) << name;
  }
}

TEST(Guid, IsMadeNewEachTime) {
  std::string first = makeGuid();
  EXPECT_TRUE(isValidGuid(first)) << first;
  EXPECT_NE(first, makeGuid());
  EXPECT_FALSE(isValidGuid(first.substr(1)));
  EXPECT_FALSE(isValidGuid("g" + first.substr(1)));
}

TEST(Guid, OfTheMachineStaysTheSame) {
  EXPECT_TRUE(isValidGuid(machineId()));
  EXPECT_EQ(machineId(), machineId());
}

}  // namespace
}  // namespace hoist::dbus
