// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Limits.h"

#include <sys/resource.h>

#include "platform/SystemCall.h"

namespace hoist::xpc {

void raiseDescriptorLimit() {
  rlimit limit;
  systemCall("getrlimit", [&] { return ::getrlimit(RLIMIT_NOFILE, &limit); });
  limit.rlim_cur = limit.rlim_max;
  systemCall("setrlimit", [&] { return ::setrlimit(RLIMIT_NOFILE, &limit); });
}

}  // namespace hoist::xpc
