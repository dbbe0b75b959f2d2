// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/Confinement.h"

#include <grp.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string_view>
#include <thread>

#include "platform/SystemCall.h"
#include "platform/Thread.h"

namespace hoist::codesign {
namespace {

// The kernel's default overflow ID; no file is meant to belong to it.
constexpr unsigned kNobody = 65534;

void becomeNobody() {
  systemCall("prctl", [] { return prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0); });
  systemCall("setgroups", [] { return setgroups(0, nullptr); });
  systemCall("setresgid", [] { return setresgid(kNobody, kNobody, kNobody); });
  systemCall("setresuid", [] { return setresuid(kNobody, kNobody, kNobody); });
}

void keepOnlyReading() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct rights[_LINUX_CAPABILITY_U32S_3] = {};
  rights[0].effective = rights[0].permitted = 1u << CAP_DAC_READ_SEARCH;
  systemCall("capset", [&] { return syscall(SYS_capset, &header, rights); });
}

}  // namespace

void keepOnlyTheRightToRead() {
  systemCall("prctl", [] { return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0); });
  if (geteuid() != 0) return;
  becomeNobody();
  keepOnlyReading();
}

void endAfter(std::chrono::duration<double> limit) {
  startDetachedThread("time limit", [limit] {
    std::this_thread::sleep_for(limit);
    constexpr std::string_view kLine = "codesign: took longer than its time limit\n";
    [[maybe_unused]] const auto ignored = write(STDERR_FILENO, kLine.data(), kLine.size());
    _exit(1);
  });
}

}  // namespace hoist::codesign
