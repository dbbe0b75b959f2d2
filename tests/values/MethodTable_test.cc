// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/MethodTable.h"

#include <gtest/gtest.h>

namespace hoist {
namespace {

using Greeting = std::string(const std::string&);

class Swizzling : public testing::Test {
 protected:
  Swizzling() {
    ClassRegistry::shared().add({.name = "TestParent"});
    ClassRegistry::shared().add({.name = "TestChild", .superclass = "TestParent"});
    table_.add<Greeting>("TestParent",
                         "greet:", [](const std::string& name) { return "hello " + name; });
  }
  ~Swizzling() override {
    ClassRegistry::shared().remove("TestParent");
    ClassRegistry::shared().remove("TestChild");
  }
  std::string greet(const char* className) {
    return table_.implementation<Greeting>(className, "greet:")("you");
  }

  MethodTable table_;
  std::function<Greeting> original_;
  std::function<Greeting> loud_ = [](const std::string& name) { return "HELLO " + name; };
};

TEST_F(Swizzling, ReplacesAMethodAndAnswersThePreviousOne) {
  EXPECT_TRUE(table_.swizzle<Greeting>("TestParent", "greet:", loud_, &original_));
  EXPECT_EQ(greet("TestParent"), "HELLO you");
  EXPECT_EQ(greet("TestChild"), "HELLO you");
  EXPECT_EQ(original_("you"), "hello you");
}

TEST_F(Swizzling, OfAnInheritedMethodAddsItToTheClassAndAnswersTheInheritedOne) {
  EXPECT_TRUE(table_.swizzle<Greeting>("TestChild", "greet:", loud_, &original_));
  EXPECT_EQ(greet("TestChild"), "HELLO you");
  EXPECT_EQ(greet("TestParent"), "hello you");
  EXPECT_EQ(original_("you"), "hello you");
}

TEST_F(Swizzling, OfAMethodThatIsNotThereAnswersFalseAndNothing) {
  original_ = loud_;
  EXPECT_FALSE(table_.swizzle<Greeting>("TestParent", "leave:", loud_, &original_));
  EXPECT_FALSE(original_);
  EXPECT_FALSE(table_.swizzle<Greeting>("TestNobody", "greet:", loud_, &original_));
  EXPECT_FALSE(table_.implementation<Greeting>("TestParent", "leave:"));
}

TEST_F(Swizzling, KeepsTheSignatureOfTheMethod) {
  EXPECT_FALSE(table_.swizzle<int()>("TestParent", "greet:", [] { return 1; }));
  EXPECT_EQ(greet("TestParent"), "hello you");
}

TEST_F(Swizzling, NeedsNoPlaceForThePreviousOne) {
  EXPECT_TRUE(table_.swizzle<Greeting>("TestParent", "greet:", loud_));
  EXPECT_EQ(greet("TestParent"), "HELLO you");
}

struct Plain final : Object {
  std::string className() const override { return "TestPlain"; }
};

TEST(NewObject, IsOfTheClassThatIsAsked) {
  ClassRegistry::shared().add({.name = "TestPlain", .create = [] { return make<Plain>(); }});
  auto first = newObjectOfClass("TestPlain");
  ASSERT_TRUE(first);
  EXPECT_EQ(first->className(), "TestPlain");
  EXPECT_NE(first, newObjectOfClass("TestPlain"));
  ClassRegistry::shared().remove("TestPlain");
  EXPECT_EQ(newObjectOfClass("TestPlain"), nullptr);
}

}  // namespace
}  // namespace hoist
