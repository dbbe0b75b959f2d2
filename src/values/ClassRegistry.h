// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "values/Coder.h"
#include "values/Object.h"

namespace hoist {

// What is known of a class by its name.
struct ClassInfo {
  std::string name;
  // Empty for a class that derives from Object alone.
  std::string superclass;
  // Remakes an instance from what encodeWithCoder wrote; empty when the class cannot be decoded.
  // Throws DecodeError.
  std::function<Ref<Object>(Decoder&)> decode;
  // Makes an instance with the plain initialiser; empty when there is none.
  std::function<Ref<Object>()> create;
  // Answers the class operations of the class, for those that are looked up by name; may be absent.
  Ref<Object> classObject;
};

// The classes of the running program by name. Registration is called from main, never from static
// initialisers that a linker may drop. Safe to use from any thread.
class ClassRegistry {
 public:
  static ClassRegistry& shared();

  // A later registration of the same name replaces the earlier one.
  void add(ClassInfo info);
  void remove(std::string_view name);
  std::optional<ClassInfo> find(std::string_view name) const;
  bool contains(std::string_view name) const;
  // Whether the class is one of the named ones or derives from one.
  bool isKindOf(std::string_view name, const AllowedClasses& classes) const;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, ClassInfo, std::less<>> classes_;
};

}  // namespace hoist
