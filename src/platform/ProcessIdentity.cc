// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/ProcessIdentity.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/FileDescriptor.h"
#include "platform/SystemCall.h"

namespace hoist::platform {
namespace {

// More than the kernel writes: some sixty lines, of which one lists at most 65,536 groups.
constexpr std::size_t kLongestStatus = 1024 * 1024;

std::string readStatus(int folder) {
  const FileDescriptor file(::openat(folder, "status", O_RDONLY | O_CLOEXEC));
  std::string text;
  char buffer[4096];
  while (file && text.size() < kLongestStatus) {
    const ssize_t length =
        retryInterrupted([&] { return ::read(file.get(), buffer, sizeof buffer); });
    if (length <= 0) break;
    text.append(buffer, static_cast<std::size_t>(length));
  }
  return text;
}

// Behind the key, which stands at the beginning of a line (the first line, "Name:", has the
// program's own text, in which a line feed is escaped); null if there is none.
const char* field(const std::string& status, const char* key) {
  const std::size_t at = status.find(std::string("\n") + key);
  return at == std::string::npos ? nullptr : status.c_str() + at + 1 + std::strlen(key);
}

}  // namespace

std::optional<ProcessIdentity> ProcessIdentity::ofProcess(pid_t process) {
  const std::string path = "/proc/" + std::to_string(process);
  const FileDescriptor folder(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  return folder ? ofProcessFolder(folder.get()) : std::nullopt;
}

std::optional<ProcessIdentity> ProcessIdentity::ofProcessFolder(int folder) {
  const std::string status = readStatus(folder);
  const char* users = field(status, "Uid:");
  const char* capabilities = field(status, "CapPrm:");
  ProcessIdentity identity;
  if (users == nullptr || capabilities == nullptr ||
      std::sscanf(users, "%u %u %u %u", &identity.realUser, &identity.effectiveUser,
                  &identity.savedUser, &identity.fileSystemUser) != 4 ||
      std::sscanf(capabilities, "%" SCNx64, &identity.permittedCapabilities) != 1) {
    return std::nullopt;
  }
  // The folder itself always belongs to the effective user; what is in it, to whoever may look.
  struct stat memory;
  if (::fstatat(folder, "mem", &memory, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  identity.isOpenToItsUser = memory.st_uid == identity.effectiveUser;
  return identity;
}

bool ProcessIdentity::isWholly(uid_t user) const {
  return realUser == user && effectiveUser == user && savedUser == user && fileSystemUser == user &&
         (user == 0 || permittedCapabilities == 0) && isOpenToItsUser;
}

bool ProcessIdentity::isRootsOnBehalfOf(uid_t user) const {
  return realUser == 0 && savedUser == user;
}

}  // namespace hoist::platform
