// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>

namespace hoist {

// A shared object. Owners point down with Ref, observers up with WeakRef.
template <class T>
using Ref = std::shared_ptr<T>;
template <class T>
using WeakRef = std::weak_ptr<T>;

template <class T, class... Args>
Ref<T> make(Args&&... args) {
  return std::make_shared<T>(std::forward<Args>(args)...);
}

}  // namespace hoist
