// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// An example of a helper: it answers the handshake, serves one command to the client that asked for
// it, and ends when the client has left and nothing runs any more.

#include <cstdlib>
#include <string_view>

#include "Commands.h"
#include "helper/HelperTool.h"
#include "platform/Dispatch.h"
#include "platform/RunLoop.h"
#include "values/product.h"

namespace {

#ifdef EXAMPLE_HELPER_VERSION
// A helper of another release.
constexpr std::string_view kVersion = EXAMPLE_HELPER_VERSION;
#else
constexpr std::string_view kVersion = hoist::product::kHelperVersion;
#endif

// How long it waits for its first client.
constexpr std::chrono::seconds kFirstClientLimit{60};

}  // namespace

int main() {
  using namespace hoist;
  example::registerClasses();
  auto tool = HelperTool::start(kVersion);
  if (!tool) return 1;
  const auto& name = tool->invocation().commandName;
  auto command = example::makeCommand(name, tool->invocation().flags);
  if (!command) {
    tool->refuse("unknown command " + name);
    return 1;
  }
  auto end = [] { dispatch::mainQueue().async([] { std::exit(0); }); };
  // A job goes on without its client, and is the last thing that the helper does then.
  auto clientLeft = [command, end] {
    if (command->isRunning()) {
      command->callWhenEnded(end);
    } else {
      end();
    }
  };
  tool->serve(command, CommandInfo::interfaceForName(name), clientLeft);
  if (!tool->couple()) return 1;
  tool->accept();
  dispatch::mainQueue().after(kFirstClientLimit, [&tool] {
    if (!tool->hasHadClients()) std::exit(0);
  });
  RunLoop::main().run();
}
