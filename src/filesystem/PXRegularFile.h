// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string_view>

#include "filesystem/PXFileInfo.h"

namespace hoist {

// A regular file, with its sizes. Thread-safety as of PXFileInfo.
class PXRegularFile final : public PXFileInfo {
 public:
  using PXFileInfo::PXFileInfo;
  PXRegularFile(Private key, VnodeType type, const ListedItem& item)
      : PXFileInfo(key, type, item), fileRecord_(item.entry.attributes) {}

  // The file at the location; null when there is none. When something else is there: raises "IO"
  // with the reason, or answers null without one.
  static Ref<PXRegularFile> regularInfoForPathObject(
      const Ref<PXPath>& path, std::optional<std::string_view> reason = "expected regular file");

  // In bytes: the length, the space it takes on disk, the length again (no resource forks).
  std::uint64_t logicalSize() const;
  std::uint64_t physicalSize() const;
  std::uint64_t dataLength() const;
  std::uint32_t linkCount() const override;

  Ref<PXRegularFile> asRegularFile() override { return self<PXRegularFile>(); }
  std::string logTypeDescription() const override { return "file"; }
  std::string className() const override { return "PXRegularFile"; }

  std::uint32_t commonAttrSize() const override {
    return sizeof(CommonAttributes) + sizeof(FileAttributes);
  }
  std::uint32_t prepareAttrRequest(attrlist::AttributeSet& request) const override;

 private:
  void parseAttrs(const attrlist::ItemAttributes& attributes) const override REQUIRES(attrLock_);
  template <class Field>
  Field field(Field FileAttributes::*field) const;

  mutable FileAttributes fileRecord_ GUARDED_BY(attrLock_);
};

}  // namespace hoist
