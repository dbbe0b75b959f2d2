// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/ClassRegistry.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace hoist {
namespace {

class Registry : public testing::Test {
 protected:
  void add(const std::string& name, const std::string& superclass = "") {
    registry_.add({.name = name,
                   .superclass = superclass,
                   .decode = nullptr,
                   .create = nullptr,
                   .classObject = nullptr});
  }
  ClassRegistry registry_;
};

TEST_F(Registry, IsSharedByTheWholeProcess) {
  EXPECT_EQ(&ClassRegistry::shared(), &ClassRegistry::shared());
}

TEST_F(Registry, FindsWhatWasAdded) {
  add("Child", "Parent");
  EXPECT_TRUE(registry_.contains("Child"));
  EXPECT_EQ(registry_.find("Child")->superclass, "Parent");
  EXPECT_FALSE(registry_.contains("Parent"));
  EXPECT_FALSE(registry_.contains("child"));
  EXPECT_FALSE(registry_.contains(""));
}

TEST_F(Registry, KeepsTheLaterOfTwoRegistrations) {
  add("Class", "One");
  add("Class", "Two");
  EXPECT_EQ(registry_.find("Class")->superclass, "Two");
}

TEST_F(Registry, ForgetsWhatWasRemoved) {
  add("Class");
  registry_.remove("Class");
  registry_.remove("Class");
  EXPECT_FALSE(registry_.contains("Class"));
}

TEST_F(Registry, KnowsTheKindsOfAClass) {
  add("Parent");
  add("Child", "Parent");
  add("Grandchild", "Child");
  EXPECT_TRUE(registry_.isKindOf("Grandchild", {"Parent"}));
  EXPECT_TRUE(registry_.isKindOf("Child", {"Other", "Parent"}));
  EXPECT_TRUE(registry_.isKindOf("Parent", {"Parent"}));
  EXPECT_FALSE(registry_.isKindOf("Parent", {"Child"}));
  EXPECT_FALSE(registry_.isKindOf("Parent", {}));
}

TEST_F(Registry, KnowsAnUnknownClassToBeItselfOnly) {
  EXPECT_TRUE(registry_.isKindOf("NSString", {"NSString"}));
  EXPECT_FALSE(registry_.isKindOf("NSString", {"NSObject"}));
  add("Child", "Unknown");
  EXPECT_TRUE(registry_.isKindOf("Child", {"Unknown"}));
}

TEST_F(Registry, ComesToAnEndInARingOfClasses) {
  add("A", "B");
  add("B", "C");
  add("C", "A");
  EXPECT_FALSE(registry_.isKindOf("A", {"D"}));
  EXPECT_TRUE(registry_.isKindOf("A", {"C"}));
  add("Self", "Self");
  EXPECT_FALSE(registry_.isKindOf("Self", {"A"}));
}

TEST_F(Registry, IsSafeFromManyThreads) {
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 500; ++i) {
        std::string name = std::to_string(t) + "." + std::to_string(i);
        add(name, std::to_string(t));
        EXPECT_TRUE(registry_.isKindOf(name, {std::to_string(t)}));
        registry_.remove(name);
      }
    });
  }
}

}  // namespace
}  // namespace hoist
