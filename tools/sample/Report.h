// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace hoist::sample {

struct Sampling;

// The report as text: a header, the call graph of each thread, the functions at the top of the
// stacks, the loaded images. In every call graph a number is that of its node's children and its
// own together; those of the top of stack add up to those of the threads.
std::string reportText(const Sampling& sampling);

}  // namespace hoist::sample
