// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>
#include <unistd.h>

#include "filesystem/PXFileInfo.h"
#include "hoistctl/Commands.h"
#include "hoistctl/HoistClient.h"
#include "hoistctl/Output.h"
#include "locations/KLPath.h"
#include "platform/Exception.h"

namespace hoist::ctl {

void addSupportFolderCommand(CLI::App& app, const Common& common) {
  auto command = app.add_subcommand(
      "support-folder", "Have your own folder made in the product's shared support folder");
  command->callback([&common] {
    HoistClient(common.serviceName).createSupportFolder();
    // It is not answered whether that worked; the folder is there or it is not.
    auto folder = KLPath::perUserLocalKLApplicationSupportPath();
    Ref<PXFileInfo> info;
    try {
      info = PXFileInfo::infoForPath(*folder->path());
    } catch (const Exception& exception) {
      throw CommandError(Failure::Refused, *folder->path() + ": " + reasonOf(exception));
    }
    if (!info->isDirectory() || info->ownerID() != ::geteuid())
      throw CommandError(Failure::Refused, "the hoist could not make the folder; its log says why");
    if (common.json) {
      printJson({{"folder", *folder->path()}, {"mode", fmt::format("{:04o}", info->access())}});
    } else {
      fmt::print("{}\n", *folder->path());
    }
  });
}

}  // namespace hoist::ctl
