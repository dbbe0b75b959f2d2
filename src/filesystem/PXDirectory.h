// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "filesystem/PXFileInfo.h"

namespace hoist {

// A folder. It registers with its path object, by which its children and others find it again.
// Thread-safety as of PXFileInfo.
class PXDirectory final : public PXFileInfo {
 public:
  using PXFileInfo::PXFileInfo;

  // The folder at the path; null when there is none or something else is there.
  static Ref<PXDirectory> directoryWithPath(std::string_view path);

  // Whether it is the root of a mount.
  bool isMountPoint() const;
  bool isPackage() const;
  std::uint32_t linkCount() const override;

  Ref<PXDirectory> parentDirectoryInfo() const override;
  std::string displayPath() const override;

  Ref<PXDirectory> asDirectory() override { return self<PXDirectory>(); }
  std::string className() const override { return "PXDirectory"; }

  std::uint32_t commonAttrSize() const override { return sizeof(DirectoryAttributes); }
  std::uint32_t prepareAttrRequest(attrlist::AttributeSet& request) const override;
  RecordRef parseAttrs(const attrlist::ItemAttributes& attributes) const override;

 protected:
  void made() override;
};

}  // namespace hoist
