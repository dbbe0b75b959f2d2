// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Exportable.h"

namespace hoist::xpc {

Exportable::~Exportable() = default;

bool Exportable::respondsToSelector(std::string_view) const {
  return false;
}

}  // namespace hoist::xpc
