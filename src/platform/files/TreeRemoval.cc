// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/TreeRemoval.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/SystemCall.h"
#include "platform/files/ItemPlace.h"
#include "platform/files/TreeWalk.h"

namespace hoist::files {
namespace {

class Removal final : public TreeVisitor {
 public:
  FileDescriptor enter(int parent, const FolderEntry& entry) override {
    FileDescriptor folder(
        ::openat(parent, entry.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder) {
      // One that may not be read can still be removed when it is empty.
      int error = errno;
      if (!isGone(error) && ::unlinkat(parent, entry.name.c_str(), AT_REMOVEDIR) != 0) {
        throw SystemCallError(error, "openat", pathOf(entry));
      }
      return folder;
    }
    if (isRootOfMount(folder.get())) throw SystemCallError(EBUSY, "unlinkat", pathOf(entry));
    ++depth_;
    return folder;
  }

  void leave(int parent, const FolderEntry& entry, int) override {
    --depth_;
    remove(parent, entry, AT_REMOVEDIR);
  }

  void item(int parent, const FolderEntry& entry) override { remove(parent, entry, 0); }

 private:
  // Whether somebody else has already done what was to be done: that is no failure but for the item
  // that this was called for.
  bool isGone(int error) const { return error == ENOENT && depth_ > 0; }

  void remove(int parent, const FolderEntry& entry, int flags) const {
    if (::unlinkat(parent, entry.name.c_str(), flags) != 0 && !isGone(errno)) {
      throwSystemCallError("unlinkat", pathOf(entry));
    }
  }

  static bool isRootOfMount(int folder) {
    struct statx item;
    return ::statx(folder, "", AT_EMPTY_PATH, STATX_TYPE, &item) == 0 &&
           (item.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  }

  // Of the folder that the walk is in, below the item.
  std::size_t depth_ = 0;
};

}  // namespace

void removeTree(const std::string& path) {
  auto place = ItemPlace::of(path);
  Removal removal;
  walkTree(place.folder.get(),
           {place.name, typeOfItem(place.folder.get(), place.name.c_str(), path), 0},
           place.folderPath, removal);
}

}  // namespace hoist::files
