// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>

namespace hoist::xpc {

// Thrown by an operation before it has done anything: the message is answered with an error reply
// (LimitsExceeded), whose text is the exception's, instead of by its reply block.
class OperationRefused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace hoist::xpc
