// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "values/AbstractFile.h"
#include "values/Ref.h"

namespace hoist {

// Read-only view of a folder, beside the view of it as a file. Each answers what the operation of
// PXDirectory without "abstract" in its name answers.
class PXAbstractDirectory {
 public:
  virtual ~PXAbstractDirectory() = default;
  virtual Ref<PXAbstractFile> firstAbstractObject() const = 0;
  virtual Ref<PXAbstractFile> firstAbstractContentFile() const = 0;
  virtual Ref<PXAbstractFile> firstAbstractRegularFile() const = 0;
  virtual Ref<PXAbstractFile> firstAbstractDirectory() const = 0;
  virtual Ref<PXAbstractFile> abstractObjectMatchingCName(std::string_view cName) const = 0;
  virtual Ref<PXAbstractFile> abstractObjectMatchingName(std::string_view name) const = 0;
  virtual Ref<PXAbstractFile> abstractSubdirectoryMatchingCName(std::string_view cName) const = 0;
  virtual Ref<PXAbstractFile> abstractSubdirectoryMatchingName(std::string_view name) const = 0;
};

}  // namespace hoist
