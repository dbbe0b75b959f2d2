// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/FileDescriptor.h"

namespace hoist::files {

// One name of a folder.
struct FolderEntry {
  std::string name;
  unsigned char type = 0;  // a DT_ constant; never DT_UNKNOWN when a visitor sees it
  std::uint64_t fileID = 0;
};

// The DT_ constant of an item. Throws SystemCallError with the given path.
unsigned char typeOfItem(int folder, const char* name, const std::string& path);

// The folders on the way down into a tree, however deep. Only the lowest ones are kept open; the
// others are found again by ".." and compared, so that a folder that was moved meanwhile is an
// error (ESTALE), not a way out of the tree.
class OpenFolders {
 public:
  void enter(FileDescriptor folder);
  // Answers the descriptor of the folder that was left. Throws SystemCallError.
  FileDescriptor leave();
  int top() const { return levels_.back().folder.get(); }
  bool empty() const { return levels_.empty(); }
  std::size_t depth() const { return levels_.size(); }

 private:
  struct Level {
    FileDescriptor folder;
    std::uint64_t device;
    std::uint64_t fileID;
  };
  std::vector<Level> levels_;
};

// What is done with the items of a tree. What it throws ends the walk.
class TreeVisitor {
 public:
  virtual ~TreeVisitor() = default;
  // A folder before its content: opens it, or answers nothing to pass it over.
  virtual FileDescriptor enter(int parent, const FolderEntry& entry) = 0;
  // The same folder after its content; it is still open.
  virtual void leave(int parent, const FolderEntry& entry, int folder) = 0;
  // Anything else.
  virtual void item(int parent, const FolderEntry& entry) = 0;

  // Where the walk is, for errors.
  std::string pathOf(const FolderEntry& entry) const;

 private:
  friend void walkTree(int parent, const FolderEntry& top, const std::string& path,
                       TreeVisitor& visitor);
  // The path of the folder that holds the top, and the folders entered below it.
  std::string start_;
  std::vector<const std::string*> entered_;
};

// Walks the item and everything below it, without recursion and without following links. The path
// is that of the folder that holds the item, for errors. Throws SystemCallError.
void walkTree(int parent, const FolderEntry& top, const std::string& path, TreeVisitor& visitor);

}  // namespace hoist::files
