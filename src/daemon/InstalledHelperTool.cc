// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/InstalledHelperTool.h"

#include "locations/KLPath.h"
#include "platform/Bundle.h"
#include "platform/Mutex.h"
#include "values/product.h"

namespace hoist {
namespace {

Ref<PXFileInfo> findHelperTool() {
  auto path = KLPath::bootKLApplicationSupportPath()->pathToFile(product::kHelperBundleName);
  auto bundle = path ? platform::Bundle::bundleWithPath(*path) : std::nullopt;
  auto executable = bundle ? bundle->executableURL() : std::nullopt;
  return executable ? PXFileInfo::infoForURL(*executable) : nullptr;
}

}  // namespace

Ref<PXFileInfo> InstalledHelperToolInfo() {
  static auto& mutex = *new Mutex;
  static auto& kept = *new Ref<PXFileInfo>;
  MutexLock lock(mutex);
  // A missing item is not found missing by itself: the object that was found is asked again.
  if (kept) kept = kept->reevaluateType();
  if (!kept || !kept->exists()) kept = findHelperTool();
  return kept;
}

}  // namespace hoist
