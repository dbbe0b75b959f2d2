// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/PassedSockets.h"

#include <fcntl.h>
#include <systemd/sd-daemon.h>

#include <cstdlib>
#include <set>
#include <vector>

#include "platform/Mutex.h"
#include "platform/SystemCall.h"
#include "platform/xpc/SocketFacts.h"

namespace hoist::xpc {
namespace {

// The descriptors by name. Each is given out once.
class PassedSockets {
 public:
  static PassedSockets& shared() {
    static auto& sockets = *new PassedSockets;
    return sockets;
  }

  FileDescriptor take(const std::string& name) {
    MutexLock lock(mutex_);
    for (std::size_t index = 0; index < names_.size(); ++index) {
      bool isOnly = names_.size() == 1;
      if (!isOnly && names_[index] != name) continue;
      int descriptor = SD_LISTEN_FDS_START + static_cast<int>(index);
      if (!isListeningStream(descriptor) || !given_.insert(descriptor).second) continue;
      return FileDescriptor(descriptor);
    }
    return {};
  }

 private:
  PassedSockets() {
    char** names = nullptr;
    int count = sd_listen_fds_with_names(0, &names);
    for (int index = 0; index < count; ++index) {
      names_.emplace_back(names ? names[index] : "");
      if (names) std::free(names[index]);
    }
    std::free(names);
  }

  std::vector<std::string> names_;
  Mutex mutex_;
  std::set<int> given_ GUARDED_BY(mutex_);
};

}  // namespace

FileDescriptor takePassedSocket(const std::string& serviceName) {
  auto passed = PassedSockets::shared().take(serviceName);
  if (!passed) return passed;
  // Another process may hold it, too, and take the connection that was waiting just now.
  int flags = ::fcntl(passed.get(), F_GETFL);
  systemCall("fcntl", [&] { return ::fcntl(passed.get(), F_SETFL, flags | O_NONBLOCK); });
  return passed;
}

}  // namespace hoist::xpc
