// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Introspection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/xpc/testing/TestService.h"

namespace hoist::xpc {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(Introspection, ShowsTheProtocolAndThenTheAdoptedOnes) {
  auto text = introspectionText(&talkingProtocol(), nullptr);
  auto talking = text.find("<interface name=\"com.kelvo.Talking\">");
  auto serving = text.find("<interface name=\"com.kelvo.Serving\">\n </interface>\n");
  auto greeting = text.find("<interface name=\"com.kelvo.Greeting\">");
  EXPECT_LT(talking, serving);
  EXPECT_LT(serving, greeting);
  EXPECT_NE(greeting, std::string::npos);
  EXPECT_THAT(text, StartsWith("<!DOCTYPE node PUBLIC"));
}

TEST(Introspection, NamesArgumentsAndValues) {
  auto text = introspectionText(&talkingProtocol(), nullptr);
  EXPECT_THAT(text, HasSubstr("  <method name=\"keep_reply_\">\n"
                              "   <arg type=\"s\" name=\"text\" direction=\"in\"/>\n"
                              "   <arg type=\"s\" name=\"text\" direction=\"out\"/>\n"
                              "  </method>\n"));
  EXPECT_THAT(text, HasSubstr("  <method name=\"failQuietly\"/>\n"));
}

TEST(Introspection, MarksWhatMayBeNil) {
  auto text = introspectionText(&talkingProtocol(), nullptr);
  EXPECT_THAT(text, HasSubstr("   <arg type=\"ah\" name=\"file\" direction=\"in\">\n"
                              "    <annotation name=\"com.kelvo.Nilable\" value=\"true\"/>\n"
                              "   </arg>\n"));
  EXPECT_THAT(text, HasSubstr("   <arg type=\"h\" name=\"file\" direction=\"in\"/>\n"));
}

TEST(Introspection, ShowsOptionalOperationsThatTheObjectImplementsOnly) {
  Talker talker;
  auto text = introspectionText(&talkingProtocol(), &talker);
  EXPECT_THAT(text, HasSubstr("didGreet"));
  EXPECT_THAT(text, Not(HasSubstr("willPart_")));
}

TEST(Introspection, ShowsTheStandardInterfacesOfAnObjectWithoutAProtocol) {
  auto text = introspectionText(nullptr, nullptr);
  EXPECT_THAT(text, HasSubstr("org.freedesktop.DBus.Peer"));
  EXPECT_THAT(text, HasSubstr("org.freedesktop.DBus.Introspectable"));
}

}  // namespace
}  // namespace hoist::xpc
