// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>

#include "sample/ImageFile.h"
#include "sample/Sampling.h"

namespace hoist::sample {

class TargetProcess;

// How to sample.
struct SamplerSettings {
  std::chrono::nanoseconds duration{};
  std::chrono::nanoseconds interval{};
  std::string debugFolder = kDebugFolder;
  // Give up every right for good once attached (dropRights).
  bool dropsRights = true;
};

// Blocks, for the whole process, the signals that sampling waits for. Before other threads begin.
void blockSignals();

// Samples the process; blocks until it is done. One sampling a process at a time; blockSignals must
// have been called. Throws Refusal.
Sampling sampleProcess(const TargetProcess& process, const SamplerSettings& settings);

}  // namespace hoist::sample
