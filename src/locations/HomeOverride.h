// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace hoist {

// The home folder that stands for "~" in a set-user-ID tool which is installed in a user's product
// folder: that user's, not that of the account it runs as. Nothing for any other program. Found out
// once, from the kernel's name of the executable; a tool that runs from a sealed copy, which has no
// name, takes the one that root gave it at its start, if the file there is set-user-ID and belongs
// to the effective user. Safe from any thread.
const std::optional<std::string>& homeFolderOverride();

// The same for the executable at a path. Raises what PXFileInfo::infoForPath raises.
std::optional<std::string> homeOverrideForExecutable(const std::string& path);

}  // namespace hoist
