// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <exception>
#include <list>
#include <vector>

#include "values/Ref.h"

namespace hoist {

class PXDirectory;
class PXPath;

// All folders of a tree, one after the other, each before those below it. They are read some time
// before their turn comes, by two threads where there are two processors, so that a tree of many
// small folders is read in little more than half the time that reading them one by one takes.
//
// Stays on the volume: what is mounted inside the tree is listed and not entered. Links are not
// followed. Of a tree that changes meanwhile, a folder shows what was there at some moment after
// the walk had read the folder above it.
//
// Holds the children of some folders at a time, whatever the size of the tree. For one thread.
class PXDirectoryWalk {
 public:
  // Of the children of each folder, and of the folders.
  enum class Order { AsRead, ByName };

  // Raises what PXFileInfo::infoForPathObject raises.
  explicit PXDirectoryWalk(const Ref<PXPath>& top, Order order = Order::AsRead);
  PXDirectoryWalk(const PXDirectoryWalk&) = delete;
  PXDirectoryWalk& operator=(const PXDirectoryWalk&) = delete;
  ~PXDirectoryWalk();

  // The next folder, its children read; null at the end, and at once when the top is no folder. One
  // that could not be opened, or not even looked at, is handed out unread. Raises what reading it
  // has raised; the next call goes on behind it. The folder is the walk's, and flushed by the next
  // call.
  Ref<PXDirectory> next();

 private:
  struct Pending {
    Ref<PXDirectory> folder;
    std::size_t level;  // 0 for the top
    // Once it was tried:
    bool wasRead = false;
    std::exception_ptr failure;
    std::size_t items = 0;  // itself and its children
    std::vector<Ref<PXDirectory>> below;
  };
  using Folders = std::list<Pending>;

  void read(Pending& pending) const;
  void readAhead();
  std::vector<Folders::iterator> nextUnread();
  void enterThoseBelow(Folders::iterator folder);

  const Order order_;
  // In the order of the walk.
  Folders pending_;
  // Of those among them that were read.
  std::size_t itemsAhead_ = 0;
  // From the top to the folder that was handed out last: they live while what is below them is
  // walked, because their children look for them.
  std::vector<Ref<PXDirectory>> path_;
};

}  // namespace hoist
