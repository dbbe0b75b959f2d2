// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>

#include "filesystem/PXFileInfo.h"
#include "hoistctl/Output.h"

namespace hoist::ctl {

// What is known about one item of the file system, for people and as JSON.

// The item at a path as a person gives it: relative to the current folder, links not followed. Null
// for what no object stands for. Throws CommandError, and what the probe raises.
Ref<PXFileInfo> itemAt(const std::string& path);

// "directory", "regular file" ...
std::string typeName(const PXFileInfo& item);
// Bytes; nothing for what has no content.
std::optional<std::uint64_t> sizeOf(PXFileInfo& item);
// As bytes, whole, whatever its length; nothing for what is no link.
std::optional<std::string> linkTarget(const PXFileInfo& item);
// As "drwxr-sr-t".
std::string modeText(PXFileInfo& item);
// As "d?????????": all that is known when the attributes are refused.
std::string typeText(const PXFileInfo& item);

// "2024-03-05T13:07:09.000000001Z"; in a year that no calendar reaches, the seconds since 1970
// after an "@", as date(1) takes them.
std::string exactTime(const timespec& time);
// The same; null for 0, which stands for none: not every file system keeps times of creation.
Json createdAsJson(const timespec& time);
// "2024-03-05 13:07", local; else likewise.
std::string localTime(const timespec& time);

// Names of accounts, each looked up once; the number for one without a name.
class Accounts {
 public:
  const std::string& user(uid_t user);
  const std::string& group(gid_t group);

 private:
  std::map<uid_t, std::string> users_;
  std::map<gid_t, std::string> groups_;
};

// The item's own attributes: what a listing knows without asking again.
Json attributesAsJson(PXFileInfo& item, Accounts& accounts);
// Adds what only this item is asked for: what a file browser and a backup make of it, access list,
// volume and where it is on it.
Json factsAsJson(PXFileInfo& item, Accounts& accounts);

}  // namespace hoist::ctl
