// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/DescriptorLimit.h"

namespace hoist::platform {
namespace {

std::optional<rlimit>& original() {
  static auto& limit = *new std::optional<rlimit>;
  return limit;
}

}  // namespace

void raiseDescriptorLimit() {
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max) return;
  rlimit raised{limit.rlim_max, limit.rlim_max};
  if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) original() = limit;
}

const std::optional<rlimit>& originalDescriptorLimit() {
  return original();
}

}  // namespace hoist::platform
