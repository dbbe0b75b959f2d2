// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <memory>

#include "connection/CommandInfo.h"
#include "exceptions/ExceptionTransport.h"
#include "hoistctl/CommandRun.h"
#include "hoistctl/Commands.h"
#include "hoistctl/DetailsTree.h"
#include "hoistctl/HoistClient.h"
#include "hoistctl/Output.h"

namespace hoist::ctl {
namespace {

// What a helper's exception may be made of.
void registerClasses() {
  Error::registerClass();
  KLException::registerClass();
}

std::vector<Setting> settingsOf(const std::vector<std::string>& texts, const std::string& command) {
  std::vector<Setting> settings;
  settings.reserve(texts.size());
  for (const auto& text : texts) settings.emplace_back(text, CommandInfo::protocolForName(command));
  return settings;
}

// Says how the command ended; throws for one that ended with an exception.
void reportEnd(const LaunchedHelper& helper, const std::optional<Data>& exceptionData, bool json) {
  auto exception = exceptionFromData(exceptionData);
  // Bytes that hold no exception are an exceptional end all the same.
  if (!exception && exceptionData)
    exception.emplace("Bug", "the helper's exception cannot be read");
  if (json) {
    Json result{{"serviceName", helper.serviceName}, {"finished", !exception}};
    if (exception) result["exception"] = exceptionAsJson(*exception);
    printJson(result);
  } else if (exception) {
    fmt::print("{}", detailsTree(*exception));
  } else {
    fmt::print("finished\n");
  }
  if (exception) throw Reported(Failure::Failed);
}

}  // namespace

void addRunCommand(CLI::App& app, const Common& common) {
  struct Options {
    std::string command;
    std::string helper;
    std::vector<std::string> settings;
    std::vector<std::string> flags;
  };
  auto options = std::make_shared<Options>();
  auto command = app.add_subcommand(
      "run", "Have a helper launched and drive its command to the end; Ctrl-C cancels it");
  command->add_option("command", options->command, "The command, as \"capture\"")->required();
  command
      ->add_option("helper", options->helper, "The helper's application bundle, or its executable")
      ->required();
  command
      ->add_option("-s,--set", options->settings,
                   "PROPERTY=VALUE: a property of the command; may be repeated")
      ->allow_extra_args(false);
  command->add_option("-f,--flag", options->flags, "A flag for the command; may be repeated")
      ->allow_extra_args(false);
  command->callback([&common, options] {
    registerClasses();
    EndingSignals signals;
    auto settings = settingsOf(options->settings, options->command);
    HoistClient client(common.serviceName);
    auto helper =
        client.launch(helperExecutable(options->helper), options->command, options->flags);
    auto connection = connectToHelper(helper, options->command);
    StatusLine status(common.json);
    CommandRun run(*connection, signals, status);
    run.set(settings);
    reportEnd(helper, run.run(), common.json);
  });
}

}  // namespace hoist::ctl
