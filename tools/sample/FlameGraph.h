// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace hoist::sample {

struct Sampling;

// The same samples as a flame graph: one SVG file that needs nothing else. The width of a box is
// how often its function was on the stack, what it called stands above it. In a browser a click
// zooms, a search marks functions and says their share; any other viewer shows the still picture.
// Boxes too narrow to be seen even when zoomed are left out, which the picture says.
std::string flameGraph(const Sampling& sampling);

}  // namespace hoist::sample
