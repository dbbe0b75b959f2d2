// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string_view>

namespace hoist::platform {

// The parent of a running process; 0 when there is no such process or it has no parent.
pid_t parentOfProcess(pid_t process);

// The parent's identifier in the text of /proc/PID/stat; 0 when the text is no such thing. The
// process's name stands in that text in parentheses and may itself hold parentheses, blanks and
// digits.
pid_t parentInProcessStat(std::string_view stat);

}  // namespace hoist::platform
