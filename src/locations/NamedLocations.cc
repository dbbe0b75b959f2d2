// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <string>

#include "locations/KLStandardPath.h"
#include "locations/KLSubPath.h"
#include "platform/files/FileManager.h"
#include "platform/volumes/FileSystemAttributes.h"
#include "preferences/PXUserPreferences.h"
#include "values/product.h"

// Every folder that the system uses, in one place: how it is found, and with which owner and mode
// it is made.

namespace hoist {
namespace {

constexpr int kRoot = 0;
constexpr int kOwnerOnly = 0700;
constexpr int kSharedByAdministrators = 0775;

Ref<KLPath> standard(StandardDirectory directory, std::uint64_t domain) {
  return KLStandardPath::initWithStandardDirectory(static_cast<std::uint64_t>(directory), domain);
}

Ref<KLPath> folder(std::string_view name, Ref<KLPath> enclosing,
                   std::optional<Dictionary> attributes = std::nullopt) {
  return KLSubPath::initWithName(name, std::move(enclosing), std::move(attributes));
}

std::optional<std::int64_t> fileSystemNumber(const Ref<KLPath>& location) {
  auto path = location->path();
  if (!path) return std::nullopt;
  auto attributes = volumes::attributesOfFileSystemForPath(path->c_str());
  if (!attributes.value) return std::nullopt;
  return (*attributes.value)[volumes::kFileSystemNumber].integerValue();
}

}  // namespace

Ref<KLPath> KLPath::userLibraryPath() {
  return standard(StandardDirectory::Library, kUserDomain);
}

Ref<KLPath> KLPath::userApplicationSupportPath() {
  return standard(StandardDirectory::ApplicationSupport, kUserDomain);
}

Ref<KLPath> KLPath::userPreferencesPath() {
  return folder("Preferences", userLibraryPath());
}

Ref<KLPath> KLPath::userLogsPath() {
  return folder("Logs", userLibraryPath());
}

Ref<KLPath> KLPath::userAgentConfigPath() {
  return folder("LaunchAgents", userLibraryPath());
}

Ref<KLPath> KLPath::userServicesPath() {
  return folder("Services", userLibraryPath());
}

Ref<KLPath> KLPath::userKLApplicationSupportPath() {
  return folder(product::kProductFolder, userApplicationSupportPath(),
                Dictionary{{files::kFilePosixPermissions, kOwnerOnly}});
}

Ref<KLPath> KLPath::userKLPreferencesPath() {
  return folder(product::kProductFolder, userPreferencesPath());
}

Ref<KLPath> KLPath::userKLPreferencesPathToGroup(std::string_view name) {
  return folder(name, userKLPreferencesPath());
}

Ref<KLPath> KLPath::localApplicationPath() {
  return standard(StandardDirectory::Application, kLocalDomain);
}

Ref<KLPath> KLPath::localLibraryPath() {
  return standard(StandardDirectory::Library, kLocalDomain);
}

Ref<KLPath> KLPath::localApplicationSupportPath() {
  return standard(StandardDirectory::ApplicationSupport, kLocalDomain);
}

Ref<KLPath> KLPath::localKLApplicationSupportPath() {
  return folder(product::kProductFolder, localApplicationSupportPath(),
                Dictionary{{files::kFilePosixPermissions, kSharedByAdministrators},
                           {files::kFileOwnerAccountID, kRoot},
                           {files::kFileGroupOwnerAccountName, "admin"}});
}

Ref<KLPath> KLPath::perUserLocalKLApplicationSupportPath() {
  auto user = ::geteuid();
  return folder(
      std::to_string(user), localKLApplicationSupportPath(),
      Dictionary{{files::kFilePosixPermissions, kOwnerOnly}, {files::kFileOwnerAccountID, user}});
}

Ref<KLPath> KLPath::localDaemonConfigPath() {
  return folder("LaunchDaemons", localLibraryPath());
}

Ref<KLPath> KLPath::localAgentConfigPath() {
  return folder("LaunchAgents", localLibraryPath());
}

Ref<KLPath> KLPath::bootKLApplicationSupportPath() {
  return userAppSupportFolderOnBoot() ? userKLApplicationSupportPath()
                                      : perUserLocalKLApplicationSupportPath();
}

bool KLPath::usesPrivilegedHelper() {
  return PXUserPreferences::sharedPreferences()->boolForKey("KLUseAdminPrivileges",
                                                            product::kClientDomain, true);
}

bool KLPath::userAppSupportFolderOnBoot() {
  static const bool onBoot = [] {
    auto users = fileSystemNumber(userApplicationSupportPath());
    return users && users == fileSystemNumber(localApplicationSupportPath());
  }();
  return onBoot;
}

}  // namespace hoist
