// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/Pace.h"

#include <gtest/gtest.h>

namespace hoist::sample {
namespace {

using namespace std::chrono_literals;

double seconds(Pace::Duration duration) {
  return std::chrono::duration<double>(duration).count();
}

TEST(SamplePace, KeepsTheWishedIntervalWhileSamplesAreCheap) {
  Pace pace(1ms, 2);
  EXPECT_EQ(pace.interval(), 1ms);
  for (int i = 0; i < 100; ++i) pace.add(10us, 20us);
  EXPECT_EQ(pace.interval(), 1ms);
}

TEST(SamplePace, HoldsTheSlowDownBelowItsShare) {
  for (auto stopped : {0us, 10us, 100us, 1000us}) {
    for (auto used : {1us, 100us, 2000us}) {
      Pace pace(1ms, 2);
      for (int i = 0; i < 200; ++i) pace.add(stopped, used);
      const double interval = seconds(pace.interval());
      EXPECT_LE((seconds(stopped) + seconds(used) / 2) / interval, Pace::kSlowDown * 1.001);
      EXPECT_LE(seconds(used) / interval, Pace::kProcessorShare * 1.001);
    }
  }
}

TEST(SamplePace, UsesAtMostHalfAProcessorOnALargeMachine) {
  Pace pace(1ms, 256);
  for (int i = 0; i < 200; ++i) pace.add(0us, 10ms);
  EXPECT_NEAR(seconds(pace.interval()), 0.020, 0.0001);
}

TEST(SamplePace, RecoversWhenSamplesBecomeCheapAgain) {
  Pace pace(1ms, 2);
  pace.add(50ms, 50ms);
  EXPECT_EQ(pace.interval(), 1s);  // never longer
  for (int i = 0; i < 200; ++i) pace.add(10us, 10us);
  EXPECT_EQ(pace.interval(), 1ms);
}

TEST(SamplePace, NeverShortensALongWish) {
  Pace pace(5s, 2);
  pace.add(50ms, 50ms);
  EXPECT_EQ(pace.interval(), 5s);
}

}  // namespace
}  // namespace hoist::sample
