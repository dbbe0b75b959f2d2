// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/ArchiveFormat.h"

#include "values/ClassRegistry.h"

namespace hoist::platform {

void requireAllowed(const std::string& className, const AllowedClasses& allowed) {
  if (allowed.contains("NSObject") || ClassRegistry::shared().isKindOf(className, allowed)) return;
  // The archive does not say of a boolean that it was put in as a number.
  if (className == "NSBoolean" && allowed.contains("NSNumber")) return;
  throw DecodeError("a class that is not allowed here: " + className);
}

void ExpansionBudget::spend(Extent extent) {
  if (extent.nodes > nodesLeft_ || extent.bytes > bytesLeft_) {
    throw DecodeError("too large written out");
  }
  nodesLeft_ -= extent.nodes;
  bytesLeft_ -= extent.bytes;
  spent_.nodes += extent.nodes;
  spent_.bytes += extent.bytes;
}

}  // namespace hoist::platform
