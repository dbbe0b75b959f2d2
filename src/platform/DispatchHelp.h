// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Dispatch.h"

namespace hoist::dispatch {

// Runs the work on this thread and, when another processor is there for it, the help on one of the
// default global queue at the same time; so the two share out among themselves what is to be done.
// The help may begin late, even when everything is done, or not at all: the work must not wait for
// it. Returns when both have ended. An exception of the work is passed on, else one of the help.
//
// A thread with other rights to files than the process has (UsersFileRights) gets no help.
void runWithHelp(const Block& work, const Block& help);

}  // namespace hoist::dispatch
