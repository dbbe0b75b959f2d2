// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/SystemCall.h"

#include <cstring>

namespace hoist {
namespace {

std::string context(const std::string& call, const std::string& path) {
  return path.empty() ? call : call + " '" + path + "'";
}

}  // namespace

SystemCallError::SystemCallError(int number, std::string call, std::string path)
    : std::system_error(number, std::system_category(), context(call, path)),
      call_(std::move(call)),
      path_(std::move(path)) {}

void throwSystemCallError(std::string_view call, std::string_view path) {
  throw SystemCallError(errno, std::string(call), std::string(path));
}

std::string errorText(int number) {
  char buffer[128];
  return strerror_r(number, buffer, sizeof buffer);
}

}  // namespace hoist
