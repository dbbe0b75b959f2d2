// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "filesystem/PXPath.h"

namespace hoist {

// The location of a folder's child, as reading the folder makes it: its own name and its parent's
// location, which it keeps alive. The full path is made when it is first asked for.
class PXSubPath final : public PXPath {
 public:
  PXSubPath(Private, Bytes bytes, Ref<PXPath> parentPath);
  // Lets go of a long line of parents one by one, not recursively.
  ~PXSubPath() override;

  static Ref<PXSubPath> initAssumingCNameParentPath(std::string_view cName, Ref<PXPath> parentPath);
  // The copy knows its full path, but not its parent.
  static Ref<PXSubPath> initWithPathObject(const PXPath& other);
  static Ref<PXSubPath> initWithCPath(std::string_view cPath);

  const char* cPath() const override;
  Ref<PXPath> parent() const override { return parentPath_; }
  const Ref<PXPath>& parentPath() const { return parentPath_; }

  std::string className() const override { return "PXSubPath"; }
  Ref<PXPath> copy() const override;

 private:
  // Nothing when it has to be made.
  const char* cPathIfMade() const;
  // The path stays where it is kept first.
  const char* keepCPath(const std::string& path) const;

  // Only the destructor changes it.
  Ref<PXPath> parentPath_;
};

}  // namespace hoist
