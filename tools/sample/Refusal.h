// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>

namespace hoist::sample {

// Why there will be no report, in one line for the person who asked.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace hoist::sample
