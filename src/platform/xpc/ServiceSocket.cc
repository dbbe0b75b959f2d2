// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A socket's file outlives the process that made it. A new listener tells a stale file from a live
// one by connecting to it, and then puts its own in the place by a rename, so that clients never
// see a moment without a listening socket. Two that start at once are kept apart by a lock on the
// folder.

#include "platform/xpc/ServiceSocket.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

#include "platform/Mutex.h"
#include "platform/SystemCall.h"
#include "values/product.h"

namespace hoist::xpc {
namespace {

// Connections that may wait to be accepted: the kernel's own bound (net.core.somaxconn) cuts it.
constexpr int kBacklog = 4096;
constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kSocketMode = 0666;

struct Directory {
  Mutex mutex;
  std::string path GUARDED_BY(mutex) = std::string(product::kRuntimeDirectory);

  static Directory& shared() {
    static auto& directory = *new Directory;
    return directory;
  }
};

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw std::invalid_argument("the path of a service's socket is too long: " + path);
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

FileDescriptor makeSocket(int flags) {
  return FileDescriptor(systemCall(
      "socket", [&] { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0); }));
}

// Held while the file of a socket is looked at and replaced.
FileDescriptor lockDirectory(const std::string& path) {
  FileDescriptor folder(systemCall(
      "open", [&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }, path));
  systemCall(
      "flock", [&] { return ::flock(folder.get(), LOCK_EX); }, path);
  return folder;
}

void makeDirectory(const std::string& path) {
  if (::mkdir(path.c_str(), kDirectoryMode) == 0) {
    // Whatever the umask.
    systemCall(
        "chmod", [&] { return ::chmod(path.c_str(), kDirectoryMode); }, path);
  } else if (errno != EEXIST) {
    throwSystemCallError("mkdir", path);
  }
}

bool isLive(const std::string& path) {
  auto probe = makeSocket(SOCK_NONBLOCK);
  auto address = addressOf(path);
  int result = ::connect(probe.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
  // EAGAIN: somebody listens, with very many who wait.
  return result == 0 || errno == EAGAIN;
}

ServiceSocket makeServiceSocket(const std::string& path) {
  ServiceSocket made;
  made.descriptor = makeSocket(SOCK_NONBLOCK);
  auto temporary = fmt::format("{}.{}", path, ::getpid());
  auto address = addressOf(temporary);
  ::unlink(temporary.c_str());
  systemCall(
      "bind",
      [&] {
        return ::bind(made.descriptor.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
      },
      temporary);
  made.madePath = temporary;
  try {
    struct stat facts;
    systemCall(
        "chmod", [&] { return ::chmod(temporary.c_str(), kSocketMode); }, temporary);
    systemCall(
        "lstat", [&] { return ::lstat(temporary.c_str(), &facts); }, temporary);
    systemCall("listen", [&] { return ::listen(made.descriptor.get(), kBacklog); });
    systemCall(
        "rename", [&] { return ::rename(temporary.c_str(), path.c_str()); }, path);
    made.madePath = path;
    made.madeDevice = facts.st_dev;
    made.madeInode = facts.st_ino;
  } catch (...) {
    ::unlink(temporary.c_str());
    throw;
  }
  return made;
}

}  // namespace

std::string runtimeDirectory() {
  auto& directory = Directory::shared();
  MutexLock lock(directory.mutex);
  return directory.path;
}

void setRuntimeDirectory(std::string path) {
  auto& directory = Directory::shared();
  MutexLock lock(directory.mutex);
  directory.path.swap(path);
}

std::string socketPathForServiceName(std::string_view serviceName) {
  if (serviceName.empty() || serviceName == "." || serviceName == ".." ||
      serviceName.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos) {
    throw std::invalid_argument("no name of a service: '" + std::string(serviceName) + "'");
  }
  auto path = fmt::format("{}/{}", runtimeDirectory(), serviceName);
  addressOf(path);
  return path;
}

FileDescriptor connectToService(const std::string& serviceName,
                                const std::atomic<bool>& cancelled) {
  auto path = socketPathForServiceName(serviceName);
  auto address = addressOf(path);
  auto socket = makeSocket(0);
  // A connect that waits for a place in the listener's queue ends with EAGAIN after that time.
  timeval patience{0, 100'000};
  ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  while (::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) < 0) {
    if (errno != EAGAIN && errno != EINTR) throwSystemCallError("connect", path);
    if (cancelled) throw SystemCallError(ECANCELED, "connect", path);
  }
  patience = {};
  ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  return socket;
}

ServiceSocket ServiceSocket::makeForServiceName(const std::string& serviceName) {
  auto path = socketPathForServiceName(serviceName);
  auto folder = path.substr(0, path.rfind('/'));
  makeDirectory(folder);
  auto lock = lockDirectory(folder);
  if (isLive(path)) throw SystemCallError(EADDRINUSE, "bind", path);
  return makeServiceSocket(path);
}

void ServiceSocket::removeFile() {
  if (madePath.empty()) return;
  auto lock = lockDirectory(madePath.substr(0, madePath.rfind('/')));
  struct stat facts;
  if (::lstat(madePath.c_str(), &facts) == 0 && facts.st_dev == madeDevice &&
      facts.st_ino == madeInode) {
    ::unlink(madePath.c_str());
  }
  madePath.clear();
}

}  // namespace hoist::xpc
