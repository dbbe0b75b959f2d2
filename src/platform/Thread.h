// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

namespace hoist {

// Stack of every thread that the program starts, in bytes: keeps the page tables of idle ones
// small.
inline constexpr unsigned long kThreadStackSize = 128 * 1024;

// Starts a detached thread with all signals blocked; whatever its body throws is reported. The name
// is cut to 15 bytes. Throws std::system_error when no thread can be had.
void startDetachedThread(const char* name, std::function<void()> body);

// The same for a body of which others like it come soon: a thread that has ended one waits a
// second for the next, instead of going. The bodies must leave the thread as they find it.
void runOnSpareThread(const char* name, std::function<void()> body);

}  // namespace hoist
