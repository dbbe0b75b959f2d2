// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/MethodTable.h"

namespace hoist {

MethodTable& MethodTable::shared() {
  static auto& table = *new MethodTable;
  return table;
}

std::optional<MethodTable::Implementation> MethodTable::find(std::string_view className,
                                                             std::string_view selector) const {
  std::string name(className);
  while (!name.empty()) {
    {
      std::lock_guard lock(mutex_);
      auto found = methods_.find({name, std::string(selector)});
      if (found != methods_.end()) return found->second;
    }
    auto info = ClassRegistry::shared().find(name);
    // A class that claims to be its own superclass ends the search.
    if (!info || info->superclass == name) break;
    name = info->superclass;
  }
  return std::nullopt;
}

void MethodTable::set(std::string_view className, std::string_view selector,
                      Implementation implementation) {
  std::lock_guard lock(mutex_);
  methods_.insert_or_assign({std::string(className), std::string(selector)},
                            std::move(implementation));
}

Ref<Object> newObjectOfClass(std::string_view className) {
  auto info = ClassRegistry::shared().find(className);
  return info && info->create ? info->create() : nullptr;
}

}  // namespace hoist
