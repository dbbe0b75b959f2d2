// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace hoist::xpc {

// Root of the interface classes that protocols are declared from, and so of every object that a
// connection can export. Interface classes derive from it (and adopt one another) virtually, so
// that an implementation can be put together from parts.
class Exportable {
 public:
  virtual ~Exportable();

  // Whether the object implements the optional operation. Not asked for required ones.
  virtual bool respondsToSelector(std::string_view selector) const;
};

}  // namespace hoist::xpc
