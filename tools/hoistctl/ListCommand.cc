// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <memory>

#include "exceptions/KLException.h"
#include "filesystem/PXDirectory.h"
#include "filesystem/PXDirectoryWalk.h"
#include "hoistctl/Commands.h"
#include "hoistctl/HoistClient.h"
#include "hoistctl/ItemFacts.h"
#include "hoistctl/Output.h"
#include "platform/Exception.h"

// ls: a folder, or a tree of them, as the file objects read it.

namespace hoist::ctl {
namespace {

constexpr const char* kUnreadable = "the folder cannot be read";

struct ListOptions {
  std::string folder = ".";
  bool isLong = false;
  bool isRecursive = false;
};

[[noreturn]] void refuse(const ListOptions& options, const std::string& reason) {
  throw CommandError(Failure::Refused, options.folder + ": " + reason);
}

// What the file system refuses is said with the path.
template <class Code>
auto orRefuse(const ListOptions& options, Code&& code) {
  try {
    return code();
  } catch (const Exception& exception) {
    refuse(options, reasonOf(exception));
  }
}

Ref<PXDirectory> folderOf(const ListOptions& options) {
  auto item = orRefuse(options, [&] { return itemAt(options.folder); });
  // Links lead to what is listed.
  if (item) item = orRefuse(options, [&] { return item->hardened(); });
  auto directory = item ? item->asDirectory() : nullptr;
  if (!directory) refuse(options, "no such folder");
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

void printList(const PXDirectory& directory, bool isLong, Accounts& accounts) {
  if (isLong) return printLongList(directory, accounts);
  for (const auto& item : directory) fmt::print("{}\n", shown(item->cName()));
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

void listFolder(const ListOptions& options, bool json) {
  Accounts accounts;
  auto directory = folderOf(options);
  orRefuse(options, [&] { directory->sort(); });
  if (!directory->contentsAreRead()) refuse(options, kUnreadable);
  if (json) return printJson(listAsJson(*directory, accounts));
  printList(*directory, options.isLong, accounts);
}

// What comes out of a walk, folder by folder.
class TreeList {
 public:
  TreeList(const ListOptions& options, bool json) : options_(options), json_(json) {}

  void add(const PXDirectory& directory) {
    if (!directory.contentsAreRead()) return addFailure(directory.path(), kUnreadable);
    if (json_) {
      folders_.push_back({{"path", directory.path()},
                          {"url", directory.url()},
                          {"items", listAsJson(directory, accounts_)}});
      return;
    }
    fmt::print("{}{}:\n", isFirst_ ? "" : "\n", shown(directory.cPath()));
    isFirst_ = false;
    printList(directory, options_.isLong, accounts_);
  }
  void addFailure(const std::string& path, const std::string& reason) {
    failed_ = true;
    if (json_) return folders_.push_back({{"path", path}, {"error", reason}});
    printToError(fmt::format("hoistctl: {}: {}\n", shown(path), shown(reason)));
  }
  void end() const {
    if (json_) printJson(folders_);
    if (failed_) throw Reported(Failure::Refused);
  }

 private:
  const ListOptions& options_;
  const bool json_;
  Accounts accounts_;
  Json folders_ = Json::array();
  bool isFirst_ = true;
  bool failed_ = false;
};

void listTree(const ListOptions& options, bool json) {
  TreeList list(options, json);
  PXDirectoryWalk walk(folderOf(options)->pathObject(), PXDirectoryWalk::Order::ByName);
  for (;;) {
    try {
      auto directory = walk.next();
      if (!directory) break;
      list.add(*directory);
    } catch (const KLException& exception) {
      auto path = exception.userInfo().find(detail_key::Path);
      list.addFailure(
          path == exception.userInfo().end() ? options.folder : path->second.description(),
          reasonOf(exception));
    }
  }
  list.end();
}

}  // namespace

void addListCommand(CLI::App& app, const Common& common) {
  auto options = std::make_shared<ListOptions>();
  auto command = app.add_subcommand("ls", "List a folder in the file browser's order");
  command->add_option("folder", options->folder, "The folder")->capture_default_str();
  command->add_flag("-l", options->isLong, "Show mode, links, owner, group, size and time");
  command->add_flag("-R", options->isRecursive,
                    "List the folders below as well, on the same volume");
  command->callback([&common, options] {
    options->isRecursive ? listTree(*options, common.json) : listFolder(*options, common.json);
  });
}

}  // namespace hoist::ctl
