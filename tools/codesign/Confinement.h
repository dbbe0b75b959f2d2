// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

namespace hoist::codesign {

// What a process that reads a stranger's bytes keeps of its rights. Run as root, it becomes the
// user and group 65534 ("nobody") for good, with the one capability to read and search everywhere;
// run as anybody else, it only gives up gaining rights. Before any thread is started. Throws
// SystemCallError.
void keepOnlyTheRightToRead();

// Ends the process with status 1 and one line on standard error when it still runs after that time,
// even while it hangs in a read of a file system that never answers.
void endAfter(std::chrono::duration<double> limit);

}  // namespace hoist::codesign
