// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "values/Coder.h"
#include "values/Object.h"
#include "values/Value.h"

namespace hoist {

class PXDirectory;
class PXFileInfo;

// A folder described by how it is found, not by its text: the same description, sent to another
// process or stored, leads to the right folder there. It is resolved once, when its path is first
// asked for; one that leads nowhere has no path, and neither has anything built on it.
//
// One object from one thread at a time.
class KLPath : public Object {
 public:
  explicit KLPath(std::optional<Dictionary> createAttributes);

  static Ref<KLPath> initWithAttributes(std::optional<Dictionary> attributes);

  // ---- The folders of the system; each answers a new, unresolved object ----
  static Ref<KLPath> userLibraryPath();
  static Ref<KLPath> userApplicationSupportPath();
  static Ref<KLPath> userPreferencesPath();
  static Ref<KLPath> userLogsPath();
  static Ref<KLPath> userAgentConfigPath();
  static Ref<KLPath> userServicesPath();
  static Ref<KLPath> userKLApplicationSupportPath();
  static Ref<KLPath> userKLPreferencesPath();
  static Ref<KLPath> userKLPreferencesPathToGroup(std::string_view name);
  static Ref<KLPath> localApplicationPath();
  static Ref<KLPath> localLibraryPath();
  static Ref<KLPath> localApplicationSupportPath();
  static Ref<KLPath> localKLApplicationSupportPath();
  // Named by the effective user ID of this process, and that user's alone.
  static Ref<KLPath> perUserLocalKLApplicationSupportPath();
  static Ref<KLPath> localDaemonConfigPath();
  static Ref<KLPath> localAgentConfigPath();
  // The user's own product folder when it lies on the file system of the local one; else the
  // per-user folder in the local one.
  static Ref<KLPath> bootKLApplicationSupportPath();

  // Whether the client wants to use administrator rights.
  static bool usesPrivilegedHelper();
  // Worked out at the first call, for the life of the process.
  static bool userAppSupportFolderOnBoot();
  static constexpr bool supportsSecureCoding() { return true; }

  // ---- The folder ----
  std::optional<std::string> path();
  // Null when there is no such folder; asked again then.
  Ref<PXDirectory> directory();
  std::optional<std::string> url();
  // Whether there is a folder at the path: a file is none, and neither is a link in the place of a
  // folder that this system makes.
  virtual bool exists();
  std::optional<std::string> pathToFile(std::string_view name);
  std::optional<std::string> urlToFile(std::string_view name);
  // The listed child or a probe; null without a folder.
  Ref<PXFileInfo> infoForFile(std::string_view name);
  // Whether any item of that name exists in it.
  bool containsFile(std::string_view name);

  // Makes the folder, unless it exists, with the attributes; the folders around it too, where they
  // are part of the description. Raises "IO" / "Cannot create support folder", after saying in the
  // log why. What was made before stays.
  virtual void create();

  // File attributes (FileManager.h) for create(); none: those of any new folder.
  const std::optional<Dictionary>& createAttributes() const { return createAttributes_; }
  void setCreateAttributes(std::optional<Dictionary> attributes) {
    createAttributes_ = std::move(attributes);
  }

  std::string className() const override { return "KLPath"; }
  // "CLASS.ADDRESS { path=PATH }".
  std::string description() const override;
  bool isCodable() const override { return true; }
  void encodeWithCoder(Encoder& encoder) const override;
  // Makes KLPath, KLSubPath and KLStandardPath known to the class registry.
  static void registerClasses();

 protected:
  // What path() keeps; nothing is asked for again.
  virtual std::optional<std::string> constructPath() const { return std::nullopt; }
  static std::optional<Dictionary> decodeAttributes(Decoder& decoder);

 private:
  void warnOfForeignFolder();

  mutable std::optional<std::string> resolvedPath_;
  Ref<PXDirectory> resolvedDirectory_;
  std::optional<Dictionary> createAttributes_;
};

}  // namespace hoist
