// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/ProcessParent.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <string>

#include "platform/FileDescriptor.h"
#include "platform/SystemCall.h"

namespace hoist::platform {

pid_t parentInProcessStat(std::string_view stat) {
  // "PID (NAME) STATE PARENT ...": whatever the name holds, the last parenthesis ends it.
  std::size_t end = stat.rfind(')');
  if (end == std::string_view::npos || stat.size() < end + 5) return 0;
  std::string_view rest = stat.substr(end + 4);
  pid_t parent = 0;
  auto [next, error] = std::from_chars(rest.data(), rest.data() + rest.size(), parent);
  return error == std::errc() && parent > 0 ? parent : 0;
}

pid_t parentOfProcess(pid_t process) {
  std::string path = "/proc/" + std::to_string(process) + "/stat";
  FileDescriptor file(retryInterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
  if (!file) return 0;
  char text[1024];
  ssize_t length = retryInterrupted([&] { return ::read(file.get(), text, sizeof text); });
  return length > 0 ? parentInProcessStat({text, static_cast<std::size_t>(length)}) : 0;
}

}  // namespace hoist::platform
