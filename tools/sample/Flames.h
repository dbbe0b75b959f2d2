// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "flamegraph/FlameGraph.h"

namespace hoist::sample {

struct Sampling;

// The same samples as a flame graph. The sampling must outlive it.
flamegraph::FlameGraph flameGraph(const Sampling& sampling);

}  // namespace hoist::sample
