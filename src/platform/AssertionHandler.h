// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "platform/Exception.h"

namespace hoist {

// Raised for an assertion that does not hold. It is of its own type so that only a test catches it;
// uncaught it aborts.
class AssertionFailure : public Exception {
 public:
  static constexpr const char* kName = "NSInternalInconsistencyException";
  explicit AssertionFailure(std::string message) : Exception(kName, std::move(message)) {}

 protected:
  [[noreturn]] void throwSelf() const override { throw *this; }
};

// Where an assertion stands.
struct AssertionPlace {
  // The method as "-[Class message]".
  std::string_view method;
  const char* file;
  int line;
};

// Writes one console entry with method, file, line and message.
void reportFailureInMethod(const AssertionPlace& place, std::string_view message);

// Reports and raises an AssertionFailure with the message as its reason.
[[noreturn]] void failAssertion(const AssertionPlace& place, const std::string& message);

// Reports and raises the given exception itself; without one, an AssertionFailure.
[[noreturn]] void failAssertion(const AssertionPlace& place, const std::string& message,
                                const Exception* object);

}  // namespace hoist
