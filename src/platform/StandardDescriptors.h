// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace hoist::platform {

// Opens the null device in the place of each standard descriptor that is closed. Otherwise the next
// socket to be opened would take its number, and the log be written into it. Called once, at start,
// before anything is opened. Throws SystemCallError.
void openStandardDescriptors();

}  // namespace hoist::platform
