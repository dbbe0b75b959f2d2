// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/TreeWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "platform/FilePaths.h"
#include "platform/SystemCall.h"

// A tree can be deeper than there are descriptors and longer than a path may be. So the walk keeps
// its own stack, goes by names relative to open folders, and reads the names of a folder all at
// once when it enters it: no open directory stream waits for the way back.

namespace hoist::files {
namespace {

constexpr std::size_t kBuffer = 64 * 1024;
// From about here on the order in which names are hashed costs more than sorting by inode.
constexpr std::size_t kManyEntries = 1000;
constexpr std::size_t kOpenFolders = 64;

struct stat statusOf(int file, const std::string& path) {
  struct stat status;
  systemCall(
      "fstat", [&] { return ::fstat(file, &status); }, path);
  return status;
}

// The names in an open folder, without "." and "..", in an order that suits the disk; false with
// errno when it cannot be read.
bool readFolder(int folder, std::vector<FolderEntry>& entries) {
  auto buffer = std::make_unique<char[]>(kBuffer);
  ssize_t length;
  while ((length = retryInterrupted([&] { return ::getdents64(folder, buffer.get(), kBuffer); })) >
         0) {
    for (ssize_t position = 0; position < length;) {
      auto item = reinterpret_cast<const dirent64*>(buffer.get() + position);
      position += item->d_reclen;
      std::string_view name = item->d_name;
      if (name == "." || name == "..") continue;
      entries.push_back({std::string(name), item->d_type, item->d_ino});
    }
  }
  if (entries.size() >= kManyEntries) {
    std::sort(entries.begin(), entries.end(), [](auto& a, auto& b) { return a.fileID < b.fileID; });
  }
  // A folder that was removed after it was opened holds nothing.
  return length == 0 || errno == ENOENT;
}

}  // namespace

unsigned char typeOfItem(int folder, const char* name, const std::string& path) {
  struct stat status;
  systemCall(
      "fstatat", [&] { return ::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW); }, path);
  return static_cast<unsigned char>(IFTODT(status.st_mode));
}

// OpenFolders.

void OpenFolders::enter(FileDescriptor folder) {
  auto status = statusOf(folder.get(), "");
  levels_.push_back({std::move(folder), status.st_dev, status.st_ino});
  if (levels_.size() > kOpenFolders) levels_[levels_.size() - 1 - kOpenFolders].folder.reset();
}

FileDescriptor OpenFolders::leave() {
  auto left = std::move(levels_.back().folder);
  levels_.pop_back();
  if (levels_.empty() || levels_.back().folder) return left;
  auto& above = levels_.back();
  above.folder.reset(systemCall("openat(..)", [&] {
    return ::openat(left.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  }));
  auto status = statusOf(above.folder.get(), "");
  if (status.st_dev != above.device || status.st_ino != above.fileID) {
    throw SystemCallError(ESTALE, "openat(..)", "");
  }
  return left;
}

// The walk.

std::string TreeVisitor::pathOf(const FolderEntry& entry) const {
  std::string path = start_;
  for (auto name : entered_) path = joinPath(path, *name);
  return joinPath(path, entry.name);
}

void walkTree(int parent, const FolderEntry& top, const std::string& path, TreeVisitor& visitor) {
  struct Level {
    std::vector<FolderEntry> entries;
    std::size_t next = 0;
  };
  OpenFolders folders;
  std::vector<Level> levels;
  // The entry whose folder each level is.
  std::vector<const FolderEntry*> entered;
  visitor.start_ = path;
  visitor.entered_.clear();

  auto visit = [&](int holder, const FolderEntry& entry) {
    if (entry.type != DT_DIR) {
      visitor.item(holder, entry);
      return;
    }
    auto folder = visitor.enter(holder, entry);
    if (!folder) return;
    auto& level = levels.emplace_back();
    if (!readFolder(folder.get(), level.entries)) {
      throwSystemCallError("getdents64", visitor.pathOf(entry));
    }
    folders.enter(std::move(folder));
    entered.push_back(&entry);
    visitor.entered_.push_back(&entry.name);
  };

  visit(parent, top);
  while (!levels.empty()) {
    auto& level = levels.back();
    if (level.next < level.entries.size()) {
      // The entries of a level stay where they are while deeper levels come and go: moving a vector
      // moves none of its elements.
      auto& entry = level.entries[level.next++];
      if (entry.type == DT_UNKNOWN) {
        entry.type = typeOfItem(folders.top(), entry.name.c_str(), visitor.pathOf(entry));
      }
      visit(folders.top(), entry);
      continue;
    }
    auto folder = folders.leave();
    auto& left = *entered.back();
    levels.pop_back();
    entered.pop_back();
    visitor.entered_.pop_back();
    visitor.leave(folders.empty() ? parent : folders.top(), left, folder.get());
  }
}

}  // namespace hoist::files
