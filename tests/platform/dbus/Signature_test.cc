// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/dbus/Signature.h"

#include <gtest/gtest.h>

#include <string>

namespace hoist::dbus {
namespace {

using namespace std::string_literals;

std::string times(int count, const std::string& text) {
  std::string result;
  for (int i = 0; i < count; ++i) result += text;
  return result;
}

TEST(Signature, IsAnyNumberOfCompleteTypes) {
  for (const std::string& signature :
       {""s, "y"s, "ybnqiuxtdsogvh"s, "as"s, "aas"s, "(i)"s, "(i(s)av)"s, "a{sv}"s, "a{ya{ov}}"s,
        "a(ii)u"s, "a{s(iv)}"s, std::string(255, 'y'), times(32, "a") + "y",
        times(32, "(") + "y" + times(32, ")"), times(32, "a(") + "y" + times(32, ")"),
        times(32, "a{y") + "y" + times(32, "}"),
        // Depths are counted along one branch, not over the whole text.
        times(3, times(32, "a") + "y")}) {
    EXPECT_TRUE(isValidSignature(signature)) << signature;
  }
}

TEST(Signature, IsNothingElse) {
  for (const std::string& signature : {"a"s,
                                       "("s,
                                       ")"s,
                                       "()"s,
                                       "(i"s,
                                       "i)"s,
                                       "{sv}"s,
                                       "a{sv"s,
                                       "a{s}"s,
                                       "a{}"s,
                                       "a{svv}"s,
                                       "a{vs}"s,
                                       "a{(i)s}"s,
                                       "a{ass}"s,
                                       "(a)"s,
                                       "a(i"s,
                                       "aa"s,
                                       "(a{sv)}"s,
                                       "z"s,
                                       "r"s,
                                       "e"s,
                                       "m"s,
                                       "*"s,
                                       " "s,
                                       "i\0"s,
                                       "\xFF"s,
                                       "({sv})"s,
                                       std::string(256, 'y'),
                                       times(33, "a") + "y",
                                       times(33, "(") + "y" + times(33, ")"),
                                       times(33, "a{y") + "y" + times(33, "}")}) {
    EXPECT_FALSE(isValidSignature(signature)) << signature;
    EXPECT_FALSE(isSingleCompleteType(signature)) << signature;
  }
}

TEST(Signature, OfAVariantIsExactlyOneType) {
  for (auto signature : {"i", "v", "as", "a{sv}", "(ii)", "aa(s)"}) {
    EXPECT_TRUE(isSingleCompleteType(signature)) << signature;
  }
  for (auto signature : {"", "ii", "a{sv}i", "(i)(i)", "asi"}) {
    EXPECT_FALSE(isSingleCompleteType(signature)) << signature;
  }
}

TEST(Signature, IsCutIntoItsTypes) {
  EXPECT_EQ(completeTypeLength(""), 0u);
  EXPECT_EQ(completeTypeLength("is"), 1u);
  EXPECT_EQ(completeTypeLength("asi"), 2u);
  EXPECT_EQ(completeTypeLength("aa{s(iv)}u"), 9u);
  EXPECT_EQ(completeTypeLength("(i(s))(i)"), 6u);
}

TEST(Signature, KnowsAlignments) {
  for (char type : "ygv"s) EXPECT_EQ(alignmentOf(type), 1u) << type;
  for (char type : "nq"s) EXPECT_EQ(alignmentOf(type), 2u) << type;
  for (char type : "biuhsoa"s) EXPECT_EQ(alignmentOf(type), 4u) << type;
  for (char type : "xtd({"s) EXPECT_EQ(alignmentOf(type), 8u) << type;
}

}  // namespace
}  // namespace hoist::dbus
