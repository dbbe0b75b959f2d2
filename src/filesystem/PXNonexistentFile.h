// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "filesystem/PXFileInfo.h"

namespace hoist {

// A location where nothing is. It has no attributes: getters answer 0 or nothing, setters do
// nothing.
class PXNonexistentFile final : public PXFileInfo {
 public:
  using PXFileInfo::PXFileInfo;

  static Ref<PXNonexistentFile> initWithPathObject(const Ref<PXPath>& path);

  bool exists() const override { return false; }
  std::uint32_t linkCount() const override { return 0; }
  Ref<PXVolumeInfo> volumeInfo() const override { return nullptr; }
  // The device of the folder that lists the folder that was here, if there still is such an object.
  std::uint32_t deviceID() const override;

  std::string className() const override { return "PXNonexistentFile"; }

 private:
  void getCommonAttrs(int) const override REQUIRES(attrLock_) {}
};

}  // namespace hoist
