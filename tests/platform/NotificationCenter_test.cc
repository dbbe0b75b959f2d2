// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/NotificationCenter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "values/Error.h"

namespace hoist {
namespace {

using testing::ElementsAre;

class NotificationCenterTest : public testing::Test {
 protected:
  NotificationCenter::Handler noting(const std::string& who) {
    return [this, who](const Notification& notification) {
      told_.push_back(who + " of " + notification.name);
    };
  }

  NotificationCenter center_;
  Ref<Object> one_ = make<Error>("one", 1), other_ = make<Error>("other", 2);
  std::vector<std::string> told_;
};

TEST_F(NotificationCenterTest, TellsThoseWhoAskedForTheNameAndTheObject) {
  auto all = center_.addObserver("Rain", nullptr, noting("everybody"));
  auto some = center_.addObserver("Rain", one_.get(), noting("one's"));
  auto none = center_.addObserver("Snow", nullptr, noting("nobody"));
  center_.postNotification({"Rain", other_});
  center_.postNotification({"Rain", one_});
  center_.postNotification({"Rain", nullptr});
  EXPECT_THAT(told_, ElementsAre("everybody of Rain", "everybody of Rain", "one's of Rain",
                                 "everybody of Rain"));
}

TEST_F(NotificationCenterTest, TellsNoObserverWhoseHandleIsGone) {
  auto observer = center_.addObserver("Rain", nullptr, noting("one"));
  observer.reset();
  center_.postNotification({"Rain", one_});
  EXPECT_TRUE(told_.empty());
}

TEST_F(NotificationCenterTest, TellsTheOthersWhenAnObserverThrows) {
  auto bad = center_.addObserver("Rain", nullptr,
                                 [](const Notification&) { throw std::runtime_error("no"); });
  auto good = center_.addObserver("Rain", nullptr, noting("good"));
  center_.postNotification({"Rain", one_});
  EXPECT_THAT(told_, ElementsAre("good of Rain"));
}

TEST_F(NotificationCenterTest, LetsAnObserverObserveMoreWhileItIsTold) {
  Ref<NotificationCenter::Observer> second;
  auto first = center_.addObserver("Rain", nullptr, [&](const Notification&) {
    second = center_.addObserver("Rain", nullptr, noting("second"));
  });
  center_.postNotification({"Rain", one_});
  EXPECT_TRUE(told_.empty());
  center_.postNotification({"Rain", one_});
  EXPECT_THAT(told_, ElementsAre("second of Rain"));
}

}  // namespace
}  // namespace hoist
