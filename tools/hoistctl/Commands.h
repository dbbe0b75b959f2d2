// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace hoist::ctl {

// What all commands share.
struct Common {
  std::string serviceName;
  // Only JSON on the standard output, failures included.
  bool json = false;
};

// Each adds its command, with its options, to the command line; it runs when the command line has
// been parsed, prints its result to the standard output and throws CommandError when it fails.
void addStatusCommand(CLI::App& app, const Common& common);
void addBarrierCommand(CLI::App& app, const Common& common);
void addLaunchCommand(CLI::App& app, const Common& common);
void addRunCommand(CLI::App& app, const Common& common);
void addSupportFolderCommand(CLI::App& app, const Common& common);
void addSampleCommand(CLI::App& app, const Common& common);
// These do not need the hoist.
void addVolumesCommand(CLI::App& app, const Common& common);
void addInfoCommand(CLI::App& app, const Common& common);
void addListCommand(CLI::App& app, const Common& common);

}  // namespace hoist::ctl
