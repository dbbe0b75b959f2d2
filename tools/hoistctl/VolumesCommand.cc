// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <memory>

#include "filesystem/PXVolumeInfo.h"
#include "hoistctl/Commands.h"
#include "hoistctl/ItemFacts.h"
#include "hoistctl/Output.h"

namespace hoist::ctl {
namespace {

struct Capability {
  const char* name;
  bool (PXVolumeInfo::*has)() const;
};

constexpr Capability kCapabilities[] = {
    {"hasPersistentObjects", &PXVolumeInfo::hasPersistentObjects},
    {"hasSymbolicLinks", &PXVolumeInfo::hasSymbolicLinks},
    {"hasHardLinks", &PXVolumeInfo::hasHardLinks},
    {"hasJournal", &PXVolumeInfo::hasJournal},
    {"hasActiveJournal", &PXVolumeInfo::hasActiveJournal},
    {"hasUnreliableRootTimes", &PXVolumeInfo::hasUnreliableRootTimes},
    {"hasSparseFiles", &PXVolumeInfo::hasSparseFiles},
    {"hasZeroRuns", &PXVolumeInfo::hasZeroRuns},
    {"isCaseSensitive", &PXVolumeInfo::isCaseSensitive},
    {"isCasePreserving", &PXVolumeInfo::isCasePreserving},
    {"hasFastStatfs", &PXVolumeInfo::hasFastStatfs},
    {"has2TBFiles", &PXVolumeInfo::has2TBFiles},
    {"hasOpenDeny", &PXVolumeInfo::hasOpenDeny},
    {"hasHiddenFiles", &PXVolumeInfo::hasHiddenFiles},
    {"hasPathFromID", &PXVolumeInfo::hasPathFromID},
    {"hasVolumeSizes", &PXVolumeInfo::hasVolumeSizes},
    {"has64BitObjects", &PXVolumeInfo::has64BitObjects},
    {"hasGetAttrList", &PXVolumeInfo::hasGetAttrList},
    {"hasGetDirEntriesAttr", &PXVolumeInfo::hasGetDirEntriesAttr},
    {"hasExchangeData", &PXVolumeInfo::hasExchangeData},
    {"hasPreallocation", &PXVolumeInfo::hasPreallocation},
    {"canRename", &PXVolumeInfo::canRename},
    {"hasAdvisoryLocking", &PXVolumeInfo::hasAdvisoryLocking},
    {"hasFileLocking", &PXVolumeInfo::hasFileLocking},
    {"hasACLs", &PXVolumeInfo::hasACLs},
    {"hasUserAccess", &PXVolumeInfo::hasUserAccess},
    {"hasMandatoryLocking", &PXVolumeInfo::hasMandatoryLocking},
    {"hasExtendedAttributes", &PXVolumeInfo::hasExtendedAttributes},
    {"hasFileCloning", &PXVolumeInfo::hasFileCloning},
    {"hasSnapshots", &PXVolumeInfo::hasSnapshots},
    {"hasSwapping", &PXVolumeInfo::hasSwapping},
    {"hasExclusiveRenaming", &PXVolumeInfo::hasExclusiveRenaming},
};

Json volumeAsJson(const PXVolumeInfo& volume, bool withCapabilities) {
  Json json{{"name", volume.displayName()},
            {"path", volume.path()},
            {"url", volume.url()},
            {"type", volume.cFilesystemType()},
            {"device", volume.deviceName()},
            {"identity", volume.syntheticUUID()},
            {"created", createdAsJson(volume.createdTimeSpec())},
            {"totalBytes", volume.totalBytes()},
            {"freeBytes", volume.freeBytes()},
            {"availableBytes", volume.availableBytes()},
            {"blockSize", volume.blockSize()},
            {"optimalTransferSize", volume.optimalXferSize()},
            {"maxFileSize", volume.maxFileSize()},
            {"writable", volume.isWritable()},
            {"local", volume.isLocal()},
            {"allowsExec", volume.allowsExec()},
            {"allowsSetUserID", volume.allowsSUID()},
            {"usesOwnership", volume.usesOwnership()},
            {"browsable", volume.isBrowsable()}};
  if (withCapabilities) {
    for (const auto& capability : kCapabilities)
      json["capabilities"][capability.name] = (volume.*capability.has)();
  }
  return json;
}

void printVolumes(const std::vector<Ref<PXVolumeInfo>>& volumes) {
  Table table({{"Name"},
               {"Type"},
               {"Device"},
               {"Size", Align::Right},
               {"Free", Align::Right},
               {"Available", Align::Right},
               {"Identity"},
               {"Mounted on"}});
  for (const auto& volume : volumes) {
    table.add({shown(volume->cName()), shown(volume->cFilesystemType()),
               shown(volume->cDeviceName()), sizeText(volume->totalBytes()),
               sizeText(volume->freeBytes()), sizeText(volume->availableBytes()),
               volume->syntheticUUID(), shown(volume->cPath())});
  }
  table.print();
}

void printCapabilities(const std::vector<Ref<PXVolumeInfo>>& volumes) {
  for (const auto& volume : volumes) {
    fmt::print("\n{}\n", shown(volume->cPath()));
    for (const auto& capability : kCapabilities) {
      if ((*volume.*capability.has)()) fmt::print("  {}\n", capability.name);
    }
  }
}

}  // namespace

void addVolumesCommand(CLI::App& app, const Common& common) {
  struct Options {
    bool all = false;
    bool capabilities = false;
  };
  auto options = std::make_shared<Options>();
  auto command = app.add_subcommand("volumes", "List the mounted volumes");
  command->add_flag("-a,--all", options->all, "Also those that are not for a file browser");
  command->add_flag("-c,--capabilities", options->capabilities, "Show what each of them can do");
  command->callback([&common, options] {
    auto volumes = options->all ? PXVolumeInfo::allVolumes() : PXVolumeInfo::browsableVolumes();
    if (common.json) {
      auto list = Json::array();
      for (const auto& volume : volumes)
        list.push_back(volumeAsJson(*volume, options->capabilities));
      printJson(list);
      return;
    }
    printVolumes(volumes);
    if (options->capabilities) printCapabilities(volumes);
  });
}

}  // namespace hoist::ctl
