// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace hoist::dbus {

// 32 lower-case hexadecimal digits of random bits from the kernel: what a server says of itself in
// its OK. Unique to the call; any thread.
std::string makeGuid();
// 32 hexadecimal digits, lower or upper case.
bool isValidGuid(std::string_view text);
// The machine's identifier (/etc/machine-id, else /var/lib/dbus/machine-id); where there is none,
// one made for this process, the same at each call. Any thread.
const std::string& machineId();

}  // namespace hoist::dbus
