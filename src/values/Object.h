// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "values/Ref.h"

namespace hoist {

class Encoder;

// Root of everything that can be held in a Value, archived or sent: it has a class name, a
// description, equality and a hash. Objects are shared through Ref; what a subclass adds says for
// itself which threads may use it.
class Object : public std::enable_shared_from_this<Object> {
 public:
  Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object();

  // The name under which the class is known to the class registry, to archives and to logs.
  virtual std::string className() const = 0;

  // Text for people. The root's is "<ClassName: 0xADDRESS>".
  virtual std::string description() const;

  // The root compares identities. A subclass that overrides one overrides both.
  virtual bool isEqual(const Object& other) const;
  virtual std::size_t hash() const;

  // Whether encodeWithCoder can be called: objects that are no values of their own (a descriptor, a
  // lock) cannot cross.
  virtual bool isCodable() const { return false; }

  // Writes the object's fields; its class remakes them in the decode function given to the class
  // registry. Throws std::logic_error for an object that is not codable.
  virtual void encodeWithCoder(Encoder& encoder) const;
};

// The object as a T, or nothing when it is absent or of another class.
template <class T>
Ref<T> as(const Ref<Object>& object) {
  return std::dynamic_pointer_cast<T>(object);
}

}  // namespace hoist
