// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <any>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "values/ClassRegistry.h"

namespace hoist {

// Operations that are looked up by class name and selector when they are called, and can therefore
// be replaced while the program runs. A class without an entry of its own inherits that of its
// superclass, as the class registry has it. For what is dispatched by C++ there is nothing to
// replace; a class enters here what it wants to keep replaceable. Safe from any thread.
class MethodTable {
 public:
  // A std::function of one signature; the signature is the method's type encoding and never
  // changes.
  using Implementation = std::any;

  static MethodTable& shared();

  // Enters a method of the class; an entry of the same selector is replaced.
  template <class Signature>
  void add(std::string_view className, std::string_view selector,
           std::function<Signature> implementation) {
    set(className, selector, Implementation(std::move(implementation)));
  }
  // The class's own or inherited implementation; empty when there is none of that signature.
  template <class Signature>
  std::function<Signature> implementation(std::string_view className,
                                          std::string_view selector) const {
    auto found = find(className, selector);
    auto function = found ? std::any_cast<std::function<Signature>>(&*found) : nullptr;
    return function ? *function : std::function<Signature>();
  }

  // Replaces the implementation of the class's method, and answers the previous one through the
  // pointer: for a method that was only inherited, which so becomes one of the class's own, the
  // inherited one. False, with an empty previous one, when the class has no such method or it is of
  // another signature. swizzle:with:returningOriginalImp:
  template <class Signature>
  bool swizzle(std::string_view className, std::string_view selector,
               std::function<Signature> replacement, std::function<Signature>* original = nullptr) {
    std::lock_guard lock(swizzling_);
    auto previous = implementation<Signature>(className, selector);
    if (original) *original = previous;
    if (!previous) return false;
    set(className, selector, Implementation(std::move(replacement)));
    return true;
  }

 private:
  std::optional<Implementation> find(std::string_view className, std::string_view selector) const;
  void set(std::string_view className, std::string_view selector, Implementation implementation);

  // Makes looking up and replacing one step; taken before the other.
  std::mutex swizzling_;
  mutable std::mutex mutex_;
  std::map<std::pair<std::string, std::string>, Implementation> methods_;
};

// A new instance of the class of that name, made with its plain initialiser; null when there is no
// such class or it has none. object (class operation)
Ref<Object> newObjectOfClass(std::string_view className);

}  // namespace hoist
