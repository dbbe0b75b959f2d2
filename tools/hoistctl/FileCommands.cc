// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <filesystem>
#include <memory>

#include "filesystem/PXDirectory.h"
#include "hoistctl/Commands.h"
#include "hoistctl/HoistClient.h"
#include "hoistctl/ItemFacts.h"
#include "hoistctl/Output.h"
#include "platform/Exception.h"
#include "platform/FilePaths.h"

// info and ls: the file objects, as a person or a script sees them.

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

Json infoAsJson(const std::string& path, Accounts& accounts) {
  try {
    auto item = PXFileInfo::infoForCPath(absolutePath(path));
    if (item && item->exists()) return factsAsJson(*item, accounts);
    return {{"path", path}, {"error", "there is nothing"}};
  } catch (const Exception& exception) {
    return {{"path", path}, {"error", reasonOf(exception)}};
  }
}

std::string valueText(const Json& value) {
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  if (value.is_string()) return shown(value.get_ref<const std::string&>());
  return value.is_null() ? "none" : value.dump();
}

void printInfo(const Json& facts) {
  if (facts.contains("error")) {
    printToError(
        fmt::format("hoistctl: {}: {}\n", valueText(facts["path"]), valueText(facts["error"])));
    return;
  }
  fmt::print("{}\n", valueText(facts["path"]));
  Table table({{}, {}, {}});
  for (auto& [key, value] : facts.items()) {
    if (key == "path") continue;
    if (!value.is_object()) {
      // Not to be taken for an empty folder.
      bool isUnread = key == "count" && value.is_null();
      table.add({"", key, isUnread ? "unread" : valueText(value)});
      continue;
    }
    for (auto& [inner, innerValue] : value.items()) {
      table.add({"", fmt::format("{} {}", key, inner), valueText(innerValue)});
    }
  }
  table.print();
}

Ref<PXDirectory> directoryAt(const std::string& path) {
  auto refuse = [&](const std::string& reason) {
    throw CommandError(Failure::Refused, shown(path) + ": " + reason);
  };
  Ref<PXDirectory> directory;
  try {
    auto item = PXFileInfo::infoForCPath(absolutePath(path));
    // Links lead to what is listed.
    directory = item ? item->hardened()->asDirectory() : nullptr;
    if (!directory) refuse("no such folder");
    directory->lazyDirectoryRead();
  } catch (const Exception& exception) {
    refuse(reasonOf(exception));
  }
  if (!directory->contentsAreRead()) refuse("the folder cannot be read");
  directory->sort();
  return directory;
}

std::string nameText(const PXFileInfo& item) {
  auto target = linkTarget(item);
  return shown(item.cName()) + (target ? " -> " + shown(*target) : "");
}

std::vector<std::string> longRow(PXFileInfo& item, Accounts& accounts) {
  try {
    auto size = sizeOf(item);
    return {modeText(item),
            std::to_string(item.linkCount()),
            accounts.user(item.ownerID()),
            accounts.group(item.groupID()),
            size ? std::to_string(*size) : "-",
            localTime(item.modifiedTimeSpec()),
            nameText(item)};
  } catch (const Exception&) {
    return {typeText(item), "?", "?", "?", "?", "?", nameText(item)};
  }
}

void printLongList(const PXDirectory& directory, Accounts& accounts) {
  Table table({{}, {"", Align::Right}, {}, {}, {"", Align::Right}, {}, {}});
  for (const auto& item : directory) table.add(longRow(*item, accounts));
  table.print();
}

Json listAsJson(const PXDirectory& directory, Accounts& accounts) {
  auto list = Json::array();
  for (const auto& item : directory) {
    try {
      list.push_back(attributesAsJson(*item, accounts));
    } catch (const Exception& exception) {
      list.push_back(
          {{"name", item->name()}, {"url", item->url()}, {"error", reasonOf(exception)}});
    }
  }
  return list;
}

}  // namespace

void addInfoCommand(CLI::App& app, const Common& common) {
  auto paths = std::make_shared<std::vector<std::string>>();
  auto command = app.add_subcommand("info", "Show all that is known about items");
  command->add_option("path", *paths, "The items; links are not followed")->required();
  command->callback([&common, paths] {
    Accounts accounts;
    auto all = Json::array();
    bool failed = false;
    for (const auto& path : *paths) {
      all.push_back(infoAsJson(path, accounts));
      failed = failed || all.back().contains("error");
    }
    if (common.json) {
      printJson(all);
    } else {
      for (const auto& facts : all) printInfo(facts);
    }
    if (failed) throw Reported(Failure::Refused);
  });
}

void addListCommand(CLI::App& app, const Common& common) {
  struct Options {
    std::string folder = ".";
    bool isLong = false;
  };
  auto options = std::make_shared<Options>();
  auto command = app.add_subcommand("ls", "List a folder in the file browser's order");
  command->add_option("folder", options->folder, "The folder")->capture_default_str();
  command->add_flag("-l", options->isLong, "Show mode, links, owner, group, size and time");
  command->callback([&common, options] {
    Accounts accounts;
    auto directory = directoryAt(options->folder);
    if (common.json) {
      printJson(listAsJson(*directory, accounts));
    } else if (options->isLong) {
      printLongList(*directory, accounts);
    } else {
      for (const auto& item : *directory) fmt::print("{}\n", shown(item->cName()));
    }
  });
}

}  // namespace hoist::ctl
