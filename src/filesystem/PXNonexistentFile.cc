// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXNonexistentFile.h"

#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"

namespace hoist {

Ref<PXNonexistentFile> PXNonexistentFile::initWithPathObject(const Ref<PXPath>& path) {
  return make<PXNonexistentFile>(Private(), VnodeType::None, path);
}

std::uint32_t PXNonexistentFile::deviceID() const {
  auto directory = pathObject()->directoryInfo();
  auto parent = directory ? directory->livingParent() : nullptr;
  return parent ? parent->deviceID() : 0;
}

}  // namespace hoist
