// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "values/Object.h"

namespace hoist {

// Read-only view of a location in the file system, shared by path objects, file information and
// exceptions. Names and paths are bytes; the string forms show a byte that is no UTF-8 as U+FFFD.
class PXAbstractPath {
 public:
  virtual ~PXAbstractPath() = default;
  // NUL-terminated; valid as long as the object.
  virtual const char* cName() const = 0;
  virtual const char* cPath() const = 0;
  virtual std::string name() const = 0;
  virtual std::string displayName() const = 0;
  virtual std::string path() const = 0;
  // A file URL: "file://" and the percent-encoded path.
  virtual std::string url() const = 0;
  virtual std::string extension() const = 0;
};

// Vnode types, with the original platform's numbers.
enum class VnodeType : std::uint32_t {
  None = 0,
  Regular = 1,
  Directory = 2,
  BlockDevice = 3,
  CharacterDevice = 4,
  SymbolicLink = 5,
  Socket = 6,
  NamedPipe = 7,
  Bad = 8,
};

// Read-only view of one item of the file system.
class PXAbstractFile : public PXAbstractPath {
 public:
  virtual VnodeType type() const = 0;
};

}  // namespace hoist
