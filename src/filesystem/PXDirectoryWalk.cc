// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A small folder is read in less time than it takes to wake a second thread. So a whole stretch of
// the folders that come next is read at once, by two threads that each take the next one in turn;
// what comes out of it is put together when both have ended. Between two stretches there is one
// thread, and nothing here is locked.

#include "filesystem/PXDirectoryWalk.h"

#include <atomic>
#include <iterator>
#include <utility>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "platform/DispatchHelp.h"
#include "platform/Exception.h"

namespace hoist {
namespace {

// The folders of a stretch. Picked: with a hundred names each, to wake a thread and to wait for the
// last folder are some hundredths of the time.
constexpr std::size_t kStretch = 64;
// Folders and children that are held ahead of their turn, some 3 MB. Picked: a stretch of such
// folders fits in.
constexpr std::size_t kItemsAhead = 10'000;

// One that cannot be looked at cannot be opened either, and that is what its turn shows: one such
// folder must not cost the walk those beside it.
bool isEntered(const PXDirectory& folder) {
  try {
    return !folder.isMountPoint();
  } catch (const Exception&) {
    return true;
  }
}

}  // namespace

PXDirectoryWalk::PXDirectoryWalk(const Ref<PXPath>& top, Order order) : order_(order) {
  auto item = PXFileInfo::infoForPathObject(top);
  auto folder = item ? item->asDirectory() : nullptr;
  if (folder) pending_.push_back({std::move(folder), 0});
}

PXDirectoryWalk::~PXDirectoryWalk() = default;

Ref<PXDirectory> PXDirectoryWalk::next() {
  if (!path_.empty()) path_.back()->flushDirectoryContents();
  if (pending_.empty()) {
    path_.clear();
    return nullptr;
  }
  if (!pending_.front().wasRead) readAhead();
  auto next = std::move(pending_.front());
  pending_.pop_front();
  itemsAhead_ -= next.items;
  path_.resize(next.level);
  path_.push_back(next.folder);
  if (next.failure) std::rethrow_exception(next.failure);
  return next.folder;
}

// On either thread. Throws nothing: whatever fails is the folder's failure.
void PXDirectoryWalk::read(Pending& pending) const {
  auto& folder = *pending.folder;
  pending.wasRead = true;
  pending.items = 1;
  try {
    folder.lazyDirectoryRead();
    if (!folder.contentsAreRead()) return;
    if (order_ == Order::ByName) folder.sort();
    pending.items += folder.count();
    for (auto child = folder.firstDirectory(); child; child = child->nextDirectory()) {
      auto below = child->asDirectory();
      if (isEntered(*below)) pending.below.push_back(std::move(below));
    }
  } catch (...) {
    pending.failure = std::current_exception();
  }
}

std::vector<PXDirectoryWalk::Folders::iterator> PXDirectoryWalk::nextUnread() {
  std::vector<Folders::iterator> folders;
  // With enough ahead, the thousands that are read need not be passed over.
  std::size_t wanted = itemsAhead_ < kItemsAhead ? kStretch : 1;
  for (auto it = pending_.begin(); it != pending_.end() && folders.size() < wanted; ++it) {
    if (!it->wasRead) folders.push_back(it);
  }
  return folders;
}

void PXDirectoryWalk::readAhead() {
  auto folders = nextUnread();
  std::atomic<std::size_t> taken = 0;
  std::atomic<std::size_t> items = itemsAhead_;
  auto readSome = [&] {
    for (;;) {
      auto place = taken++;
      // The first one is what is waited for.
      if (place >= folders.size() || (place > 0 && items >= kItemsAhead)) return;
      read(*folders[place]);
      items += folders[place]->items;
    }
  };
  if (folders.size() == 1) {
    readSome();
  } else {
    dispatch::runWithHelp(readSome, readSome);
  }
  itemsAhead_ = items;
  for (auto folder : folders) enterThoseBelow(folder);
}

void PXDirectoryWalk::enterThoseBelow(Folders::iterator folder) {
  auto behind = std::next(folder);
  for (auto& below : std::exchange(folder->below, {})) {
    pending_.insert(behind, {std::move(below), folder->level + 1});
  }
}

}  // namespace hoist
