// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

namespace hoist::platform {

// Gives a variable another value for a scope.
template <class T>
class Scoped {
 public:
  Scoped(T& variable, T value)
      : variable_(variable), previous_(std::exchange(variable, std::move(value))) {}
  ~Scoped() { variable_ = std::move(previous_); }
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;

 private:
  T& variable_;
  T previous_;
};

}  // namespace hoist::platform
