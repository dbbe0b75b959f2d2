// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

namespace hoist::sample {

// How long to wait from one sample to the next, so that the target is slowed down by no more than a
// fixed share whatever a sample costs. Two things slow it: standing still while it is looked at,
// and the processor time that the sampler takes away from it on a busy machine. Pure arithmetic.
class Pace {
 public:
  using Duration = std::chrono::nanoseconds;

  // Share of the target's time that sampling may cost. The promise is 5 %; what is not measured
  // (caches, the kernel's own work for an interruption) has the rest.
  static constexpr double kSlowDown = 0.035;
  // Share of one processor that the sampler may use, however many there are.
  static constexpr double kProcessorShare = 0.5;

  // The wished interval is never gone below.
  Pace(Duration wished, unsigned processors);

  // What one sample cost: the time that a running thread stood still, and the processor time of the
  // whole sampler.
  void add(Duration stopped, Duration processorTime);
  // Of the samples to come.
  Duration interval() const;

 private:
  const double wished_;
  const double processors_;
  bool first_ = true;
  double stopped_ = 0;  // moving averages, nanoseconds
  double processorTime_ = 0;
};

}  // namespace hoist::sample
