// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/ItemFacts.h"

#include <acl/libacl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <climits>
#include <ctime>
#include <filesystem>
#include <memory>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXRegularFile.h"
#include "filesystem/PXVolumeInfo.h"
#include "hoistctl/CommandError.h"
#include "platform/FilePaths.h"

namespace hoist::ctl {
namespace {

// Not cleaned: "link/.." is a question for the file system, which also knows the name of what ends
// in a dot.
std::string absolutePath(const std::string& path) {
  auto name = baseName(path);
  if (name == "." || name == "..") {
    if (auto real = realPath(path.c_str())) return *real;
  }
  if (path.empty() || path.starts_with('/')) return path;
  std::error_code error;
  auto here = std::filesystem::current_path(error);
  if (error) throw CommandError(Failure::Refused, "the current folder: " + error.message());
  return joinPath(here.string(), path);
}

char typeLetter(VnodeType type) {
  switch (type) {
    case VnodeType::Directory:
      return 'd';
    case VnodeType::BlockDevice:
      return 'b';
    case VnodeType::CharacterDevice:
      return 'c';
    case VnodeType::SymbolicLink:
      return 'l';
    case VnodeType::Socket:
      return 's';
    case VnodeType::NamedPipe:
      return 'p';
    default:
      return '-';
  }
}

std::string rightsText(unsigned bits) {
  return {bits & 4 ? 'r' : '-', bits & 2 ? 'w' : '-', bits & 1 ? 'x' : '-'};
}

Json textOrNull(const std::optional<std::string>& text) {
  return text ? Json(*text) : Json();
}

Json volumeAsJson(PXFileInfo& item) {
  auto volume = item.volumeInfo();
  if (!volume) return {};
  return {{"name", volume->displayName()},
          {"path", volume->path()},
          {"identity", volume->syntheticUUID()},
          {"relativePath", textOrNull(item.volumeRelativePath())}};
}

Json accessListAsJson(PXFileInfo& item) {
  auto list = item.acl();
  if (!list) return {};
  std::unique_ptr<char, int (*)(void*)> text(
      ::acl_to_any_text(list.get(), nullptr, ',', TEXT_ABBREVIATE), ::acl_free);
  return text ? Json(text.get()) : Json();
}

}  // namespace

Ref<PXFileInfo> itemAt(const std::string& path) {
  return PXFileInfo::infoForCPath(absolutePath(path));
}

std::string typeName(const PXFileInfo& item) {
  switch (item.type()) {
    case VnodeType::Regular:
      return "regular file";
    case VnodeType::Directory:
      return "directory";
    case VnodeType::BlockDevice:
      return "block device";
    case VnodeType::CharacterDevice:
      return "character device";
    case VnodeType::SymbolicLink:
      return "symbolic link";
    case VnodeType::Socket:
      return "socket";
    case VnodeType::NamedPipe:
      return "named pipe";
    default:
      return "nothing";
  }
}

std::optional<std::uint64_t> sizeOf(PXFileInfo& item) {
  if (auto file = item.asRegularFile()) return file->logicalSize();
  if (auto target = linkTarget(item)) return target->size();
  return std::nullopt;
}

std::optional<std::string> linkTarget(const PXFileInfo& item) {
  if (!item.isSymbolicLink()) return std::nullopt;
  std::string target(PATH_MAX, '\0');
  auto length = ::readlink(item.cPath(), target.data(), target.size());
  if (length < 0) return std::nullopt;
  target.resize(static_cast<std::size_t>(length));
  return target;
}

std::string modeText(PXFileInfo& item) {
  unsigned access = item.access();
  auto owner = rightsText(access >> 6), group = rightsText(access >> 3),
       others = rightsText(access);
  // A capital letter says that the right to execute is missing below the bit.
  if (access & 04000) owner[2] = access & 0100 ? 's' : 'S';
  if (access & 02000) group[2] = access & 0010 ? 's' : 'S';
  if (access & 01000) others[2] = access & 0001 ? 't' : 'T';
  return typeLetter(item.type()) + owner + group + others;
}

std::string typeText(const PXFileInfo& item) {
  return typeLetter(item.type()) + std::string(9, '?');
}

std::string exactTime(const timespec& time) {
  std::tm calendar;
  if (!::gmtime_r(&time.tv_sec, &calendar)) {
    return fmt::format("@{}.{:09}", time.tv_sec, time.tv_nsec);
  }
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:09}Z", calendar, time.tv_nsec);
}

Json createdAsJson(const timespec& time) {
  bool isKnown = time.tv_sec != 0 || time.tv_nsec != 0;
  return isKnown ? Json(exactTime(time)) : Json();
}

std::string localTime(const timespec& time) {
  std::tm calendar;
  if (!::localtime_r(&time.tv_sec, &calendar)) return fmt::format("@{}", time.tv_sec);
  return fmt::format("{:%Y-%m-%d %H:%M}", calendar);
}

const std::string& Accounts::user(uid_t user) {
  auto [known, isNew] = users_.try_emplace(user);
  if (isNew) {
    auto account = ::getpwuid(user);
    known->second = account ? account->pw_name : std::to_string(user);
  }
  return known->second;
}

const std::string& Accounts::group(gid_t group) {
  auto [known, isNew] = groups_.try_emplace(group);
  if (isNew) {
    auto account = ::getgrgid(group);
    known->second = account ? account->gr_name : std::to_string(group);
  }
  return known->second;
}

Json attributesAsJson(PXFileInfo& item, Accounts& accounts) {
  Json json{{"name", item.name()},
            // The bytes of the path, whatever they are.
            {"url", item.url()},
            {"type", typeName(item)}};
  if (auto size = sizeOf(item)) json["size"] = *size;
  if (auto file = item.asRegularFile()) json["physicalSize"] = file->physicalSize();
  if (auto target = linkTarget(item)) json["target"] = *target;
  json["mode"] = fmt::format("{:04o}", item.access());
  json["ownerID"] = item.ownerID();
  json["owner"] = accounts.user(item.ownerID());
  json["groupID"] = item.groupID();
  json["group"] = accounts.group(item.groupID());
  json["links"] = item.linkCount();
  json["created"] = createdAsJson(item.createdTimeSpec());
  json["modified"] = exactTime(item.modifiedTimeSpec());
  json["changed"] = exactTime(item.attributeChangedTimeSpec());
  json["fileFlags"] = fmt::format("{:#x}", item.fileFlags());
  json["fileID"] = item.localIdentifier();
  json["device"] = item.deviceID();
  return json;
}

Json factsAsJson(PXFileInfo& item, Accounts& accounts) {
  Json json{{"path", item.path()}};
  json.update(attributesAsJson(item, accounts));
  if (auto directory = item.asDirectory()) {
    // Of a folder that cannot be read, nothing; which is not none.
    bool isReadable = item.effectiveAccess() & 4;
    json["count"] = isReadable ? Json(directory->count()) : Json();
    json["mountPoint"] = directory->isMountPoint();
    json["package"] = directory->isPackage();
  }
  json["effectiveAccess"] = rightsText(item.effectiveAccess());
  json["accessList"] = accessListAsJson(item);
  json["hidden"] = item.isHidden();
  json["hiddenExtension"] = item.isHiddenExtension();
  json["excludedFromBackup"] = item.isExcludedFromBackup();
  json["displayName"] = item.displayName();
  json["displayPath"] = item.displayPath();
  json["volume"] = volumeAsJson(item);
  return json;
}

}  // namespace hoist::ctl
