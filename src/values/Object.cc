// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/Object.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <stdexcept>

namespace hoist {

Object::~Object() = default;

std::string Object::description() const {
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
  return "<" + className() + ": " + address + ">";
}

bool Object::isEqual(const Object& other) const {
  return this == &other;
}

std::size_t Object::hash() const {
  return std::hash<const void*>()(this);
}

void Object::encodeWithCoder(Encoder&) const {
  throw std::logic_error(className() + " cannot be encoded");
}

}  // namespace hoist
