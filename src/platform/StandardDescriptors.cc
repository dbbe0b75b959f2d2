// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/SystemCall.h"

namespace hoist::platform {

void openStandardDescriptors() {
  for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
    if (::fcntl(number, F_GETFD) >= 0) continue;
    // It gets the lowest free number, which is this one. Child tasks inherit it.
    systemCall(
        "open", [] { return ::open("/dev/null", O_RDWR); }, "/dev/null");
  }
}

}  // namespace hoist::platform
