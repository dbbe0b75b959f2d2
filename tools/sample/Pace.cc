// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/Pace.h"

#include <algorithm>

namespace hoist::sample {
namespace {

// Weight of a new value in the moving averages; picked, about the last sixteen samples count.
constexpr double kWeight = 1.0 / 16;
// However dear a sample is, one a second is taken.
constexpr double kLongestInterval = 1e9;

}  // namespace

Pace::Pace(Duration wished, unsigned processors)
    : wished_(static_cast<double>(wished.count())), processors_(std::max(processors, 1u)) {}

void Pace::add(Duration stopped, Duration processorTime) {
  const double weight = first_ ? 1 : kWeight;
  first_ = false;
  stopped_ += weight * (static_cast<double>(stopped.count()) - stopped_);
  processorTime_ += weight * (static_cast<double>(processorTime.count()) - processorTime_);
}

Pace::Duration Pace::interval() const {
  const double forTheTarget = (stopped_ + processorTime_ / processors_) / kSlowDown;
  const double forTheMachine = processorTime_ / kProcessorShare;
  const double longest = std::max(wished_, kLongestInterval);
  return Duration(static_cast<Duration::rep>(
      std::min(std::max({wished_, forTheTarget, forTheMachine}), longest)));
}

}  // namespace hoist::sample
