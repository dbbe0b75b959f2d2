// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

#include "values/Object.h"

namespace hoist {

// A URL among values, told apart from plain text by its class. Immutable; safe from any thread.
class URL final : public Object {
 public:
  explicit URL(std::string absoluteString) : absoluteString_(std::move(absoluteString)) {}

  const std::string& absoluteString() const { return absoluteString_; }

  std::string className() const override { return "NSURL"; }
  std::string description() const override { return absoluteString_; }
  bool isEqual(const Object& other) const override {
    auto url = dynamic_cast<const URL*>(&other);
    return url && url->absoluteString_ == absoluteString_;
  }
  std::size_t hash() const override { return std::hash<std::string>()(absoluteString_); }

 private:
  const std::string absoluteString_;
};

}  // namespace hoist
