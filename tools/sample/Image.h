// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <elfutils/libdwfl.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "platform/FileDescriptor.h"
#include "sample/ImageFile.h"
#include "sample/MemoryMap.h"

namespace hoist::sample {

class SymbolTable;

// One program or library in the target's memory, and what is known of its file. Used by one thread.
class Image {
 public:
  // Opens the file; an image whose file cannot be had has a name and a place, but no symbols and no
  // unwinding tables.
  Image(const TargetProcess& process, ImageRange range, std::string debugFolder);
  ~Image();
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  const ImageRange& range() const { return range_; }
  bool holds(Address address) const { return address >= range_.start && address < range_.end; }
  // The file's name without its folders, fit for printing.
  const std::string& name() const { return name_; }
  // As the target sees it, fit for printing.
  const std::string& path() const { return path_; }
  // In hexadecimal; empty when there is none.
  const std::string& buildID() const { return buildID_; }

  // A new handle on the file's or the kernel library's bytes, read piece by piece as they are asked
  // for and never mapped: the target may cut its files short under the reader. Null when there are
  // none. The caller ends it with elf_end before the image goes.
  Elf* openElf() const;
  FileDescriptor openDebugFile() const;

  // Made on first use.
  const SymbolTable& symbols();

 private:
  ImageRange range_;
  std::string debugFolder_;
  std::string path_;
  std::string name_;
  std::string buildID_;
  std::vector<std::byte> buildIDBytes_;
  FileDescriptor file_;
  mutable std::vector<char> memory_;
  std::unique_ptr<SymbolTable> symbols_;
};

// Callbacks with which libdwfl gets every file from the image that is a module's user data, and
// nothing from elsewhere.
extern const Dwfl_Callbacks kImageCallbacks;

// Adds the image to a session that is being reported (dwfl_report_begin). Null when libdwfl does
// not take it.
Dwfl_Module* reportImage(Dwfl* session, Image& image);

}  // namespace hoist::sample
