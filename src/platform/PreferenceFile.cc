// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/PreferenceFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "platform/FileReading.h"
#include "platform/PropertyList.h"
#include "platform/SystemCall.h"

// The file is replaced as a whole: written beside, synced, renamed, and the folder synced, so that
// after a power cut there is the old list or the new one. It is never written through a link or
// into something that is no regular file; such a thing counts as damaged and is moved aside.

namespace hoist::platform {
namespace {

constexpr mode_t kPermissions = 07777;
constexpr auto kLockPatience = std::chrono::seconds(1);
constexpr auto kLockRetry = std::chrono::milliseconds(5);

std::string folderOf(const std::string& path) {
  return std::filesystem::path(path).parent_path();
}

// The path with a dot before its name and an ending: what belongs to the file, out of sight.
std::string besides(const std::string& path, const char* ending) {
  std::filesystem::path name(path);
  return name.parent_path() / ("." + name.filename().string() + ending);
}

void syncFolder(const std::string& folder) {
  FileDescriptor fd(systemCall(
      "open", [&] { return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }, folder));
  systemCall(
      "fsync", [&] { return fsync(fd.get()); }, folder);
}

void writeAll(int fd, std::string_view bytes, const std::string& path) {
  while (!bytes.empty()) {
    auto count = systemCall(
        "write", [&] { return write(fd, bytes.data(), bytes.size()); }, path);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace

std::optional<PreferenceFile::Mark> PreferenceFile::markOf(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) return std::nullopt;
  return Mark{status.st_dev, status.st_ino, status.st_size,
              status.st_ctim.tv_sec * 1'000'000'000LL + status.st_ctim.tv_nsec};
}

void PreferenceFile::refresh() {
  if (!known_ || markOf(path_) != mark_) reload();
}

void PreferenceFile::reload() {
  // Taken before the file is read: a change in between is seen the next time.
  mark_ = markOf(path_);
  known_ = true;
  entries_.clear();
  try {
    read();
    complaint_.clear();
  } catch (const SystemCallError& error) {
    switch (error.number()) {
      case ENOENT:
      case ENOTDIR:
        state_ = State::Absent;
        complaint_.clear();
        break;
      case ELOOP:
      case EINVAL:
      case EISDIR:
      case ENXIO:
        return fail(State::Damaged, "is no regular file");
      case EFBIG:
        return fail(State::Damaged, "is too large");
      default:
        return fail(State::Unreadable, std::string("cannot be read: ") + error.what());
    }
  } catch (const PropertyListError& error) {
    fail(State::Damaged, error.what());
  }
}

void PreferenceFile::read() {
  FileDescriptor file = openRegularFile(path_);
  struct stat status;
  systemCall(
      "fstat", [&] { return fstat(file.get(), &status); }, path_);
  mode_ = status.st_mode & kPermissions;
  Value value = propertyListFromData(readWhole(file.get(), kMaximumBytes));
  if (!value.dictionary()) throw PropertyListError("no dictionary");
  entries_ = *value.dictionary();
  state_ = State::Good;
}

void PreferenceFile::fail(State state, const std::string& why) {
  state_ = state;
  std::string complaint = "the preferences " + path_ + " count as empty: " + why;
  if (complaint != complaint_) report_ = complaint;
  complaint_ = complaint;
}

void PreferenceFile::moveAside() {
  for (int number = 1;; ++number) {
    std::string aside = path_ + ".damaged" + (number > 1 ? std::to_string(number) : "");
    if (renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE) == 0) return;
    if (errno != EEXIST) throwSystemCallError("renameat2", path_);
  }
}

void PreferenceFile::writeBeside(const std::string& path, const Data& bytes) const {
  // Left behind by a process that was killed; the lock says that nobody is at it.
  unlink(path.c_str());
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  FileDescriptor file(systemCall(
      "open", [&] { return open(path.c_str(), kFlags, 0600); }, path));
  writeAll(file.get(), bytes.view(), path);
  mode_t mode = state_ == State::Good ? mode_ : 0600;
  systemCall(
      "fchmod", [&] { return fchmod(file.get(), mode); }, path);
  systemCall(
      "fsync", [&] { return fsync(file.get()); }, path);
}

void PreferenceFile::replace(const Dictionary& entries) {
  Data bytes = dataFromPropertyList(entries, PropertyListFormat::XML);
  if (bytes.size() > kMaximumBytes) throw PropertyListError("more than 1 MiB");
  std::string temporary = besides(path_, ".new");
  writeBeside(temporary, bytes);
  if (state_ == State::Damaged) moveAside();
  systemCall(
      "rename", [&] { return rename(temporary.c_str(), path_.c_str()); }, path_);
  syncFolder(folderOf(path_));
  reload();
}

PreferenceFileLock::PreferenceFileLock(const std::string& path) {
  std::string name = besides(path, ".lock");
  constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  file_ = FileDescriptor(systemCall(
      "open", [&] { return open(name.c_str(), kFlags, 0600); }, name));
  auto end = std::chrono::steady_clock::now() + kLockPatience;
  while (flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() > end) {
      throwSystemCallError("flock", name);
    }
    std::this_thread::sleep_for(kLockRetry);
  }
}

}  // namespace hoist::platform
