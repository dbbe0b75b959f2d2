// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The private folder of a user inside the product's local support folder, a place where the user
// cannot make one. It is made by root and handed to the user through its owner.

#include <string>

#include "daemon/TesselHoister.h"
#include "locations/KLSubPath.h"
#include "platform/files/FileManager.h"

namespace hoist {
namespace {

constexpr int kOwnerOnly = 0700;

}  // namespace

void TesselHoister::createBootApplicationSupportPathForUser() {
  // One at a time for a user: who comes second finds the folder finished, not still root's.
  MutexLock lock(supportFolderMutex_);
  Dictionary attributes = {{files::kFilePosixPermissions, kOwnerOnly},
                           {files::kFileOwnerAccountID, userID()}};
  KLSubPath::initWithName(std::to_string(userID()), KLPath::localKLApplicationSupportPath(),
                          std::move(attributes))
      ->create();
}

}  // namespace hoist
