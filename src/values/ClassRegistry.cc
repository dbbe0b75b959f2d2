// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/ClassRegistry.h"

namespace hoist {

ClassRegistry& ClassRegistry::shared() {
  static auto& registry = *new ClassRegistry;
  return registry;
}

void ClassRegistry::add(ClassInfo info) {
  std::lock_guard lock(mutex_);
  std::string name = info.name;
  classes_.insert_or_assign(std::move(name), std::move(info));
}

void ClassRegistry::remove(std::string_view name) {
  std::lock_guard lock(mutex_);
  auto found = classes_.find(name);
  if (found != classes_.end()) classes_.erase(found);
}

std::optional<ClassInfo> ClassRegistry::find(std::string_view name) const {
  std::lock_guard lock(mutex_);
  auto found = classes_.find(name);
  return found == classes_.end() ? std::nullopt : std::optional(found->second);
}

bool ClassRegistry::contains(std::string_view name) const {
  return find(name).has_value();
}

bool ClassRegistry::isKindOf(std::string_view name, const AllowedClasses& classes) const {
  std::lock_guard lock(mutex_);
  std::string current(name);
  // Bounded by the number of classes, so that a ring of superclasses ends.
  for (std::size_t step = 0; step <= classes_.size(); ++step) {
    if (classes.contains(current)) return true;
    auto found = classes_.find(current);
    if (found == classes_.end() || found->second.superclass.empty()) return false;
    current = found->second.superclass;
  }
  return false;
}

}  // namespace hoist
