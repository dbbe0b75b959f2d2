// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "support/TemporaryFolder.h"

namespace hoist::bench {

// Small files for a benchmark, in a folder of their own that goes away with this.
class FileTree {
 public:
  // Folders in one level below the top, with about as many files each; without folders, all in the
  // top. Every file holds the given number of bytes.
  FileTree(int folders, int files, int bytesOfFile);

  const std::string& path() const { return top_; }
  // A path beside the tree, for a copy of it.
  std::string beside(const std::string& name) const { return folder_ / name; }
  int items() const { return items_; }

 private:
  TemporaryFolder folder_;
  std::string top_;
  int items_;
};

// Runs a program with its output thrown away; false when it does not end with status 0.
bool runQuietly(const std::string& command);

}  // namespace hoist::bench
