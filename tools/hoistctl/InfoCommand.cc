// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <memory>

#include "filesystem/PXFileInfo.h"
#include "hoistctl/Commands.h"
#include "hoistctl/HoistClient.h"
#include "hoistctl/ItemFacts.h"
#include "hoistctl/Output.h"
#include "platform/Exception.h"

// info: all that the file objects know of an item, for a person or a script.

namespace hoist::ctl {
namespace {

Json infoAsJson(const std::string& path, Accounts& accounts) {
  try {
    auto item = itemAt(path);
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

}  // namespace hoist::ctl
