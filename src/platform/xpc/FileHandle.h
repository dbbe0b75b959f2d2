// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/FileDescriptor.h"
#include "values/Object.h"

namespace hoist::xpc {

// A file descriptor as an object, so that a dictionary can carry one over a connection. As an
// argument of its own a descriptor is a plain FileDescriptor. Immutable; safe to use from any
// thread.
class FileHandle final : public Object {
 public:
  explicit FileHandle(FileDescriptor descriptor) : descriptor_(std::move(descriptor)) {}

  // Borrowed.
  int descriptor() const { return descriptor_.get(); }

  std::string className() const override { return "NSFileHandle"; }

 private:
  FileDescriptor descriptor_;
};

}  // namespace hoist::xpc
