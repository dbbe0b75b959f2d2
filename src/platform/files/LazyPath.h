// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/SystemCall.h"

namespace hoist::files {

// The path of an item, made only when an error is about it: trees have many items and few errors.
using LazyPath = std::function<std::string()>;

// As systemCall, with such a path.
template <class Call>
auto systemCallOn(const LazyPath& path, std::string_view name, Call&& call) {
  auto result = retryInterrupted(std::forward<Call>(call));
  if (result == -1) {
    int error = errno;
    throw SystemCallError(error, std::string(name), path());
  }
  return result;
}

}  // namespace hoist::files
