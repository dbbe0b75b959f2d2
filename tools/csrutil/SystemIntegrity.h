// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace hoist::csrutil {

// True if the running system keeps even root from changing its kernel: the kernel is locked down
// (integrity or confidentiality), or was started by firmware that enforces Secure Boot. The folder
// is where sysfs is mounted; what cannot be read there counts as absent.
bool isSystemIntegrityProtected(const std::string& sysfs = "/sys");

// The line that answers "status", without a line feed.
std::string statusText(bool isProtected);

}  // namespace hoist::csrutil
