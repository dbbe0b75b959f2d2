// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <iostream>

#include "connection/CommandInfo.h"
#include "connection/KLEndpointConnection.h"
#include "connection/KLServiceConnection.h"
#include "connection/protocols/CommandMessaging.h"
#include "connection/protocols/TesselHoisting.h"
using namespace hoist;

// Has a helper launched with root's rights and runs its command: HELPER-EXECUTABLE COMMAND.
int main(int count, char** arguments) {
  if (count != 3) return 2;
  auto hoist =
      KLServiceConnection::initWithServiceName("com.kelvo.hoist", tesselHoistingProtocol());
  std::optional<xpc::Endpoint> endpoint;
  // It returns when every answer that comes at all has come.
  hoist->performSynchronousBlock([&](const xpc::Proxy& proxy) {
    proxy.send<&TesselHoisting::launchPrivilegedHelper>(
        arguments[1], arguments[2], std::vector<std::string>{"seconds=0"},
        [&](auto, auto received) { endpoint = received; });
  });
  if (!endpoint) return std::cerr << "no helper was launched\n", 1;
  auto helper = KLEndpointConnection::initWithEndpoint(*endpoint, "the helper",
                                                       CommandInfo::interfaceForName(arguments[2]));
  auto proxy = helper->serviceProxy();
  if (!proxy) return std::cerr << "the helper does not answer\n", 1;
  std::string outcome = "lost";
  auto ended = ConditionLock::messageLock();
  proxy->connection()
      ->remoteObjectProxyWithErrorHandler([&](auto&) { ended->messageReplied(); })
      ->send<&CommandMessaging::runWithReply>([&](const auto& exception) {
        outcome = exception ? "failed" : "finished";
        ended->messageReplied();
      });
  ended->waitForMessageReply();
  std::cout << outcome << "\n";
}
