// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// hoistctl: what a person, or a script, asks the hoist for, or wants to know about volumes and
// files. Ends with 0, 1 when the hoist or the file system refused, 2 for a command line that makes
// no sense, 3 when hoist or helper cannot be reached, 4 when the helper's command ended with an
// exception.

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "hoistctl/Commands.h"
#include "hoistctl/HoistClient.h"
#include "hoistctl/Output.h"
#include "logging/Logger.h"
#include "platform/Exception.h"
#include "platform/FileDescriptor.h"
#include "platform/StandardDescriptors.h"
#include "platform/SystemCall.h"
#include "values/product.h"

namespace {

// What fails is said once, by the command that it makes fail.
class SilentLogger final : public hoist::Logger {
 public:
  bool writesClassification(hoist::Classification) const override { return false; }
  std::optional<std::string> formatMessage(std::string_view, const hoist::LogLineIdentifier&,
                                           hoist::Classification, std::string_view) override {
    return std::nullopt;
  }
  std::string className() const override { return "SilentLogger"; }
};

int fail(const hoist::ctl::Common& common, int status, const std::string& message) {
  using namespace hoist::ctl;
  if (common.json) {
    std::puts(Json{{"error", message}, {"status", status}}
                  .dump(2, ' ', false, Json::error_handler_t::replace)
                  .c_str());
  } else {
    printToError("hoistctl: " + shown(message) + "\n");
  }
  return status;
}

// A standard output that is closed stays one that takes nothing, but keeps its number: the
// connection would get it, and what is printed with it.
void openStandardDescriptors() {
  using namespace hoist;
  bool isClosed = ::fcntl(STDOUT_FILENO, F_GETFD) < 0;
  platform::openStandardDescriptors();
  if (!isClosed) return;
  FileDescriptor unwritable(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  systemCall("dup2", [&] { return ::dup2(unwritable.get(), STDOUT_FILENO); });
}

// What did not reach its reader was not done: a disk can be full.
int withOutputWritten(int status) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  hoist::ctl::printToError("hoistctl: the output could not be written\n");
  return static_cast<int>(hoist::ctl::Failure::Refused);
}

int run(int argc, char** argv) {
  using namespace hoist;
  openStandardDescriptors();
  Logger::setDefaultLogger(make<SilentLogger>());
  ctl::Common common{.serviceName = std::string(product::kHoistServiceName)};
  CLI::App app(
      "Talks to the hoist, the privileged daemon, and shows volumes and files as it sees them.",
      "hoistctl");
  app.require_subcommand(1);
  app.fallthrough();
  app.add_flag("--json", common.json, "Print JSON, and nothing else, on the standard output");
  app.add_option("--service", common.serviceName, "Name of the service")->capture_default_str();
  ctl::addStatusCommand(app, common);
  ctl::addBarrierCommand(app, common);
  ctl::addLaunchCommand(app, common);
  ctl::addRunCommand(app, common);
  ctl::addSupportFolderCommand(app, common);
  ctl::addSampleCommand(app, common);
  ctl::addVolumesCommand(app, common);
  ctl::addInfoCommand(app, common);
  ctl::addListCommand(app, common);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    return fail(common, static_cast<int>(ctl::Failure::Usage), error.what());
  } catch (const ctl::CommandError& error) {
    return fail(common, static_cast<int>(error.kind()), error.what());
  } catch (const ctl::Reported& error) {
    return static_cast<int>(error.kind());
  } catch (const Exception& error) {
    return fail(common, static_cast<int>(ctl::Failure::Refused), ctl::reasonOf(error));
  } catch (const std::exception& error) {
    // An output that cannot be written is reported at the end.
    if (std::ferror(stdout) != 0) return static_cast<int>(ctl::Failure::Refused);
    return fail(common, static_cast<int>(ctl::Failure::Unreachable), error.what());
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return withOutputWritten(run(argc, argv));
}
