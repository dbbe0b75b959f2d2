// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "preferences/PXUserPreferences.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <thread>

#include "platform/Clock.h"
#include "platform/Dispatch.h"
#include "platform/RunLoop.h"
#include "preferences/PXCachedPreferences.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

using namespace std::chrono_literals;
using platform::PreferenceStore;

constexpr const char* kDomain = "com.example.app";

class Preferences : public testing::Test {
 protected:
  // What is scheduled by then finds nothing to do: the store is gone.
  ~Preferences() override { preferences_->synchronize(); }

  // What another process would see.
  std::optional<Value> stored(std::string_view key, std::string_view domain = kDomain) {
    return PreferenceStore({folder_ / "user", folder_ / "machine"}).copyAppValue(key, domain);
  }
  void store(std::string_view key, Value value) {
    PreferenceStore other({folder_ / "user", folder_ / "machine"});
    other.setAppValue(key, std::move(value), kDomain);
    ASSERT_TRUE(other.appSynchronize(kDomain));
  }
  std::string file(const std::string& domain) const {
    return folder_ / ("user/" + domain + ".plist");
  }
  // Runs the main queue until the condition holds, at most ten seconds.
  static bool runMainQueueUntil(const std::function<bool()>& condition) {
    auto end = std::chrono::steady_clock::now() + 10s;
    while (!condition() && std::chrono::steady_clock::now() < end) {
      RunLoop::main().runOnce(1'000);
    }
    return condition();
  }
  // Runs it until a block that became due just now has run.
  static void runMainQueue() {
    bool ran = false;
    dispatch::mainQueue().after(0s, [&] { ran = true; });
    EXPECT_TRUE(runMainQueueUntil([&] { return ran; }));
  }

  TemporaryFolder folder_;
  PreferenceStore store_{{folder_ / "user", folder_ / "machine"}};
  Ref<PXUserPreferences> preferences_ = PXUserPreferences::init(store_);
};

TEST_F(Preferences, AreNothingWhereNothingIsStored) {
  EXPECT_EQ(preferences_->valueForKey("x", kDomain), std::nullopt);
  EXPECT_EQ(preferences_->valueForKey("x", kDomain, Value("default")), Value("default"));
  EXPECT_FALSE(preferences_->boolForKey("x", kDomain));
  EXPECT_EQ(preferences_->integerForKey("x", kDomain), 0);
  EXPECT_EQ(preferences_->doubleForKey("x", kDomain), 0.0);
  EXPECT_TRUE(preferences_->boolForKey("x", kDomain, true));
  EXPECT_EQ(preferences_->integerForKey("x", kDomain, -7), -7);
  EXPECT_EQ(preferences_->doubleForKey("x", kDomain, 2.5), 2.5);
}

TEST_F(Preferences, AreReadAsTheTypeThatIsAskedFor) {
  store("number", 3);
  store("real", 0.5);
  store("text", " -12.5 apples");
  store("yes", "YES");
  store("flag", true);
  EXPECT_EQ(preferences_->valueForKey("number", kDomain, Value(9)), Value(3));
  EXPECT_TRUE(preferences_->boolForKey("number", kDomain));
  EXPECT_EQ(preferences_->doubleForKey("number", kDomain), 3.0);
  EXPECT_TRUE(preferences_->boolForKey("real", kDomain));
  EXPECT_EQ(preferences_->integerForKey("real", kDomain, 9), 0);
  EXPECT_EQ(preferences_->integerForKey("text", kDomain), -12);
  EXPECT_EQ(preferences_->doubleForKey("text", kDomain), -12.5);
  EXPECT_TRUE(preferences_->boolForKey("text", kDomain));
  EXPECT_TRUE(preferences_->boolForKey("yes", kDomain));
  EXPECT_EQ(preferences_->integerForKey("yes", kDomain, 9), 0);
  EXPECT_EQ(preferences_->integerForKey("flag", kDomain), 1);
  EXPECT_EQ(preferences_->doubleForKey("flag", kDomain), 1.0);
}

TEST_F(Preferences, AreTheDefaultWhereTheValueHasNoSuchType) {
  store("date", Date(5));
  store("list", Array{1});
  store("data", Data::fromString("1"));
  store("map", Dictionary{});
  for (const char* key : {"date", "list", "data", "map"}) {
    EXPECT_TRUE(preferences_->boolForKey(key, kDomain, true)) << key;
    EXPECT_EQ(preferences_->integerForKey(key, kDomain, 7), 7) << key;
    EXPECT_EQ(preferences_->doubleForKey(key, kDomain, 7.5), 7.5) << key;
  }
}

TEST_F(Preferences, ClampIntegers) {
  store("high", 500);
  store("low", -5);
  EXPECT_EQ(preferences_->integerForKey("high", kDomain, 0, 1, 100), 100);
  EXPECT_EQ(preferences_->integerForKey("low", kDomain, 0, 1, 100), 1);
  EXPECT_EQ(preferences_->integerForKey("none", kDomain, 0, 1, 100), 1);
  EXPECT_EQ(preferences_->integerForKey("none", kDomain, 50, 1, 100), 50);
  // A minimum above the maximum.
  EXPECT_EQ(preferences_->integerForKey("none", kDomain, 5, 10, 1), 10);
  EXPECT_EQ(preferences_->integerForKey("high", kDomain, 0, 10, 1), 1);
  EXPECT_EQ(preferences_->integerForKey("none", kDomain, 10, 10, 1), 1);
}

TEST_F(Preferences, ClampDoubles) {
  store("high", 1e300);
  store("low", -0.5);
  store("text", "nan");
  EXPECT_EQ(preferences_->doubleForKey("high", kDomain, 0, 0.25, 0.75), 0.75);
  EXPECT_EQ(preferences_->doubleForKey("low", kDomain, 0, 0.25, 0.75), 0.25);
  EXPECT_EQ(preferences_->doubleForKey("none", kDomain, 0.5, 0.25, 0.75), 0.5);
  EXPECT_EQ(preferences_->doubleForKey("none", kDomain, 0.5, 0.75, 0.25), 0.75);
  EXPECT_EQ(preferences_->doubleForKey("high", kDomain, 0, 0.75, 0.25), 0.25);
  EXPECT_TRUE(std::isnan(preferences_->doubleForKey("text", kDomain, 0, 0.25, 0.75)));
}

TEST_F(Preferences, WriteOnlyWhatIsNew) {
  EXPECT_TRUE(preferences_->setValue(Value("x"), "key", kDomain));
  EXPECT_FALSE(preferences_->setValue(Value("x"), "key", kDomain));
  EXPECT_TRUE(preferences_->setValue(Value("y"), "key", kDomain));
  EXPECT_EQ(preferences_->valueForKey("key", kDomain), Value("y"));
}

TEST_F(Preferences, RemoveAKeyThatIsThere) {
  EXPECT_FALSE(preferences_->setValue(std::nullopt, "key", kDomain));
  EXPECT_TRUE(preferences_->setValue(Value(1), "key", kDomain));
  EXPECT_TRUE(preferences_->setValue(std::nullopt, "key", kDomain));
  EXPECT_EQ(preferences_->valueForKey("key", kDomain), std::nullopt);
  EXPECT_FALSE(preferences_->setValue(std::nullopt, "key", kDomain));
}

TEST_F(Preferences, WriteAnEqualValueOfAnotherClass) {
  EXPECT_TRUE(preferences_->setInteger(1, "key", kDomain));
  EXPECT_TRUE(preferences_->setBool(true, "key", kDomain));
  EXPECT_EQ(preferences_->valueForKey("key", kDomain)->kind(), Value::Kind::Boolean);
  EXPECT_TRUE(preferences_->setInteger(1, "key", kDomain));
  // An integer and a double are of one class.
  EXPECT_FALSE(preferences_->setDouble(1.0, "key", kDomain));
  EXPECT_TRUE(preferences_->setValue(Value("1"), "key", kDomain));
}

TEST_F(Preferences, AreWrittenAsTheTypeThatWasSet) {
  preferences_->setBool(true, "flag", kDomain);
  preferences_->setInteger(std::numeric_limits<std::int64_t>::min(), "number", kDomain);
  preferences_->setDouble(0.1, "real", kDomain);
  preferences_->synchronize();
  EXPECT_EQ(stored("flag"), Value(true));
  EXPECT_EQ(stored("number"), Value(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(stored("real"), Value(0.1));
}

TEST_F(Preferences, TakeNaNForTheSameNaN) {
  double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(preferences_->setDouble(nan, "key", kDomain));
  EXPECT_FALSE(preferences_->setDouble(nan, "key", kDomain));
  EXPECT_TRUE(preferences_->setDouble(0.5, "key", kDomain));
  EXPECT_TRUE(preferences_->setDouble(0.25, "key", kDomain));
  EXPECT_TRUE(preferences_->setDouble(nan, "key", kDomain));
}

TEST_F(Preferences, AreSynchronisedTwoSecondsAfterTheFirstWrite) {
  TestClock clock(Date(1'000'000));
  preferences_->setInteger(1, "a", "one");
  clock.advance(1s);
  preferences_->setInteger(2, "b", "one");
  preferences_->setInteger(3, "c", "two");
  clock.advance(999ms);
  runMainQueue();
  EXPECT_FALSE(std::filesystem::exists(file("one")));
  clock.advance(1ms);
  EXPECT_TRUE(runMainQueueUntil([&] { return stored("c", "two") == Value(3); }));
  EXPECT_EQ(stored("a", "one"), Value(1));
  EXPECT_EQ(stored("b", "one"), Value(2));
  auto written = std::filesystem::last_write_time(file("one"));
  // Nothing is left to do: no later synchronisation writes again.
  clock.advance(10s);
  runMainQueue();
  EXPECT_EQ(std::filesystem::last_write_time(file("one")), written);
  // The next write schedules anew.
  preferences_->setInteger(4, "a", "one");
  clock.advance(2s);
  EXPECT_TRUE(runMainQueueUntil([&] { return stored("a", "one") == Value(4); }));
}

TEST_F(Preferences, DoNothingWhenThereIsNothingToSynchronise) {
  preferences_->synchronize();
  EXPECT_FALSE(std::filesystem::exists(folder_ / "user"));
}

TEST_F(Preferences, ArePendingNoLongerAfterADirectSynchronisation) {
  TestClock clock(Date(1'000'000));
  preferences_->setInteger(1, "a", kDomain);
  preferences_->synchronize();
  EXPECT_EQ(stored("a"), Value(1));
  // The scheduled one still comes, and finds what was written after the direct one.
  clock.advance(1s);
  preferences_->setInteger(2, "a", kDomain);
  clock.advance(1s);
  EXPECT_TRUE(runMainQueueUntil([&] { return stored("a") == Value(2); }));
}

TEST_F(Preferences, ThatNobodyHoldsAnyMoreAreSynchronisedAllTheSame) {
  TestClock clock(Date(1'000'000));
  PXUserPreferences::init(store_)->setInteger(1, "a", kDomain);
  clock.advance(2s);
  EXPECT_TRUE(runMainQueueUntil([&] { return stored("a") == Value(1); }));
}

TEST_F(Preferences, AreSafeFromManyThreads) {
  auto cached = PXCachedPreferences::init(store_);
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        preferences_->setInteger(i, std::to_string(t), kDomain);
        cached->setInteger(i, std::to_string(t), kDomain);
        cached->integerForKey(std::to_string((t + 1) % 4), kDomain);
        preferences_->integerForKey(std::to_string((t + 1) % 4), kDomain);
      }
      preferences_->synchronize();
    });
  }
  threads.clear();
  for (int t = 0; t < 4; ++t) EXPECT_EQ(stored(std::to_string(t)), Value(49));
}

TEST_F(Preferences, AreSharedPerClass) {
  EXPECT_EQ(PXUserPreferences::sharedPreferences(), PXUserPreferences::sharedPreferences());
  EXPECT_EQ(PXCachedPreferences::sharedPreferences(), PXCachedPreferences::sharedPreferences());
  EXPECT_NE(PXUserPreferences::sharedPreferences().get(),
            PXCachedPreferences::sharedPreferences().get());
}

class CachedPreferences : public Preferences {
 protected:
  Ref<PXCachedPreferences> cached_ = PXCachedPreferences::init(store_);
};

TEST_F(CachedPreferences, DoNotSeeWhatOthersWriteAfterTheFirstRead) {
  store("x", 1);
  EXPECT_EQ(cached_->integerForKey("x", kDomain), 1);
  store("x", 2);
  EXPECT_EQ(cached_->integerForKey("x", kDomain), 1);
  EXPECT_EQ(preferences_->integerForKey("x", kDomain), 2);
}

TEST_F(CachedPreferences, RememberThatThereWasNoValue) {
  EXPECT_EQ(cached_->valueForKey("x", kDomain), std::nullopt);
  store("x", 1);
  EXPECT_EQ(cached_->valueForKey("x", kDomain), std::nullopt);
  EXPECT_EQ(cached_->integerForKey("x", kDomain, 7), 7);
}

TEST_F(CachedPreferences, KeepWhatTheyAreToldToThemselves) {
  EXPECT_EQ(cached_->valueForKey("x", kDomain), std::nullopt);
  EXPECT_FALSE(cached_->setValue(Value("mine"), "x", kDomain));
  EXPECT_EQ(cached_->valueForKey("x", kDomain), Value("mine"));
  EXPECT_EQ(preferences_->valueForKey("x", kDomain), std::nullopt);
  EXPECT_EQ(PXCachedPreferences::init(store_)->valueForKey("x", kDomain), std::nullopt);
  cached_->synchronize();
  EXPECT_EQ(stored("x"), std::nullopt);
}

TEST_F(CachedPreferences, AnswerFalseToEverySetter) {
  EXPECT_FALSE(cached_->setBool(true, "b", kDomain));
  EXPECT_FALSE(cached_->setInteger(5, "i", kDomain));
  EXPECT_FALSE(cached_->setDouble(std::numeric_limits<double>::quiet_NaN(), "d", kDomain));
  EXPECT_FALSE(cached_->setValue(std::nullopt, "i", kDomain));
  EXPECT_TRUE(cached_->boolForKey("b", kDomain));
  EXPECT_EQ(cached_->integerForKey("i", kDomain, 9), 9);
}

TEST_F(CachedPreferences, ReadSeveralKeysAhead) {
  store("a", 1);
  store("b", 2);
  std::vector<std::string> keys{"a", "b", "none"};
  cached_->cacheValuesForKeys(keys, kDomain);
  store("a", 10);
  store("b", 20);
  store("none", 30);
  EXPECT_EQ(cached_->integerForKey("a", kDomain), 1);
  EXPECT_EQ(cached_->integerForKey("b", kDomain), 2);
  EXPECT_EQ(cached_->valueForKey("none", kDomain), std::nullopt);
}

TEST_F(CachedPreferences, KeepDomainsApart) {
  cached_->setInteger(1, "x", "one");
  EXPECT_EQ(cached_->valueForKey("x", "two"), std::nullopt);
}

}  // namespace
}  // namespace hoist
