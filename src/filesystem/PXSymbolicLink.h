// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "filesystem/PXFileInfo.h"

namespace hoist {

// A symbolic link, with its target text. The text is read once, safely from any thread; changing it
// must not happen from several threads at once.
class PXSymbolicLink final : public PXFileInfo {
 public:
  using PXFileInfo::PXFileInfo;

  // The target text, as bytes; at most its first 1025. Valid until setContents, as long as the
  // object. Raises "IO" / "cannot read content of symbolic link".
  const char* contents() const;
  // Removes the link and makes it anew: in between nothing is there. Raises "cannot delete item"
  // when there is no link any more, "cannot write content of symbolic link" when it cannot be made.
  void setContents(const char* target);

  // Bytes of the target text.
  std::uint64_t dataLength() const;
  std::uint64_t totalLength() const { return dataLength(); }
  std::uint64_t rsrcLength() const { return 0; }

  // The volume that holds the link, not the one that its target is on.
  Ref<PXVolumeInfo> volumeInfo() const override;

  Ref<PXSymbolicLink> asSymbolicLink() override { return self<PXSymbolicLink>(); }
  std::string logTypeDescription() const override { return "link"; }
  std::string className() const override { return "PXSymbolicLink"; }

 private:
  mutable SpinLock contentsLock_;
  mutable std::unique_ptr<char[]> contents_ GUARDED_BY(contentsLock_);
};

}  // namespace hoist
