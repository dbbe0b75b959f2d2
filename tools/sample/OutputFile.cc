// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/OutputFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/SystemCall.h"
#include "sample/Refusal.h"
#include "sample/Rights.h"

namespace hoist::sample {
namespace {

// O_NONBLOCK: a FIFO or device that lies there must not hold up the open before its type is known.
constexpr int kFlags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
// Somebody who keeps making and removing the file between two calls is not played with for long.
constexpr int kTries = 8;

[[noreturn]] void refuse(const std::string& path, int number) {
  const std::string reason =
      number == ELOOP ? "it is a symbolic link, or a chain of them" : errorText(number);
  throw Refusal(fmt::format("cannot write {}: {}", path, reason));
}

}  // namespace

OutputFile OutputFile::open(std::string path) {
  RealUsersFileRights rights;
  for (int attempt = 0; attempt < kTries; ++attempt) {
    FileDescriptor made(
        retryInterrupted([&] { return ::open(path.c_str(), kFlags | O_CREAT | O_EXCL, 0644); }));
    if (made) return OutputFile(std::move(made), std::move(path), Kind::Made);
    if (errno != EEXIST) refuse(path, errno);
    FileDescriptor found(retryInterrupted([&] { return ::open(path.c_str(), kFlags); }));
    if (!found && errno == ENOENT) continue;
    if (!found) refuse(path, errno);
    struct stat status;
    if (::fstat(found.get(), &status) != 0) refuse(path, errno);
    if (!S_ISREG(status.st_mode)) {
      throw Refusal(fmt::format("cannot write {}: it is no regular file", path));
    }
    return OutputFile(std::move(found), std::move(path), Kind::Found);
  }
  refuse(path, EBUSY);
}

OutputFile OutputFile::standardOutput() {
  return OutputFile(FileDescriptor::duplicate(STDOUT_FILENO), "standard output", Kind::Stream);
}

OutputFile::~OutputFile() {
  if (file_ && kind_ == Kind::Made && !written_) removeIfStillMine();
}

void OutputFile::removeIfStillMine() noexcept {
  try {
    RealUsersFileRights rights;
    struct stat mine;
    struct stat there;
    if (::fstat(file_.get(), &mine) == 0 && ::lstat(path_.c_str(), &there) == 0 &&
        mine.st_dev == there.st_dev && mine.st_ino == there.st_ino) {
      ::unlink(path_.c_str());
    }
  } catch (const std::exception&) {
    // An empty file stays behind; the reason why there is no report is on its way out already.
  }
}

bool OutputFile::isSameFileAs(const OutputFile& other) const {
  struct stat mine;
  struct stat theirs;
  return ::fstat(file_.get(), &mine) == 0 && ::fstat(other.file_.get(), &theirs) == 0 &&
         mine.st_dev == theirs.st_dev && mine.st_ino == theirs.st_ino;
}

void OutputFile::replaceContents(std::string_view text) {
  written_ = true;
  if (kind_ != Kind::Stream && retryInterrupted([&] { return ::ftruncate(file_.get(), 0); }) != 0) {
    refuse(path_, errno);
  }
  while (!text.empty()) {
    ssize_t written =
        retryInterrupted([&] { return ::write(file_.get(), text.data(), text.size()); });
    if (written < 0) refuse(path_, errno);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace hoist::sample
