// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/HoistClient.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "connection/protocols/CommandMessaging.h"
#include "connection/protocols/TesselHoisting.h"
#include "platform/ConditionLock.h"

namespace hoist::ctl {
namespace {

// Sends one message, and waits for its answer or its failure, of which exactly one comes.
template <auto Function, class... Results, class... Arguments>
std::tuple<Results...> call(const Ref<xpc::Connection>& connection, const Arguments&... arguments) {
  struct Answer {
    ConditionLock lock{0};
    std::optional<std::tuple<Results...>> values;
    Ref<Error> error;
  };
  auto answer = make<Answer>();
  auto proxy = connection->remoteObjectProxyWithErrorHandler([answer](const Ref<Error>& error) {
    answer->error = error;
    answer->lock.messageReplied();
  });
  proxy->template send<Function>(arguments..., [answer](Results... values) {
    answer->values.emplace(std::move(values)...);
    answer->lock.messageReplied();
  });
  answer->lock.waitForMessageReply();
  if (!answer->values) {
    throw CommandError(Failure::Unreachable, answer->error->localizedDescription().value_or(
                                                 answer->error->description()));
  }
  return std::move(*answer->values);
}

std::chrono::nanoseconds timedBarrier(const Ref<xpc::Connection>& connection) {
  auto start = std::chrono::steady_clock::now();
  call<&KLComponentMessaging::barrierWithCompletion>(connection);
  return std::chrono::steady_clock::now() - start;
}

// The kernel's word on a process's users; everybody may read it.
void readUsers(LaunchedHelperFacts& facts) {
  std::ifstream status("/proc/" + std::to_string(facts.process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with("Uid:")) continue;
    std::istringstream numbers(line.substr(4));
    uid_t real, effective;
    if (numbers >> real >> effective) {
      facts.realUser = real;
      facts.effectiveUser = effective;
    }
  }
}

void askHelper(const xpc::Endpoint& endpoint, LaunchedHelperFacts& facts) {
  auto helper = xpc::Connection::initWithListenerEndpoint(endpoint);
  helper->setRemoteObjectInterface(
      xpc::Interface::interfaceWithProtocol(commandMessagingProtocol()));
  helper->resume();
  facts.hasEndpoint = true;
  facts.barrier = timedBarrier(helper);
  facts.name = std::get<0>(call<&CommandMessaging::queryNameWithReply, std::string>(helper));
  facts.humanReadableName =
      std::get<0>(call<&CommandMessaging::queryHumanReadableNameWithReply, std::string>(helper));
  facts.process = static_cast<pid_t>(std::atoi(
      std::get<0>(call<&CommandMessaging::queryProcessIdentifierWithReply, std::string>(helper))
          .c_str()));
  facts.privileged = std::get<0>(call<&CommandMessaging::queryIsPrivilegedWithReply, bool>(helper));
  readUsers(facts);
}

}  // namespace

HoistClient::HoistClient(std::string serviceName)
    : serviceName_(std::move(serviceName)),
      connection_(xpc::Connection::initWithMachServiceName(serviceName_)) {
  connection_->setRemoteObjectInterface(
      xpc::Interface::interfaceWithProtocol(tesselHoistingProtocol()));
  connection_->resume();
}

std::string HoistClient::componentVersion() {
  return std::get<0>(
      call<&KLComponentInstalling::queryComponentVersionWithReply, std::string>(connection_));
}

std::uint32_t HoistClient::buildNumber() {
  return std::get<0>(
      call<&KLComponentInstalling::queryBuildNumberWithReply, std::uint32_t>(connection_));
}

std::chrono::nanoseconds HoistClient::barrier() {
  return timedBarrier(connection_);
}

void HoistClient::createSupportFolder() {
  connection_->remoteObjectProxy()
      ->send<&TesselHoisting::createBootApplicationSupportPathForUser>();
  // The messages of a connection are handled in order.
  timedBarrier(connection_);
}

LaunchedHelperFacts HoistClient::launch(const std::string& helperPath, const std::string& command,
                                        const std::vector<std::string>& flags) {
  struct Answer {
    bool came = false;
    std::optional<std::string> serviceName;
    std::optional<xpc::Endpoint> endpoint;
  };
  auto answer = make<Answer>();
  connection_->remoteObjectProxy()->send<&TesselHoisting::launchPrivilegedHelper>(
      helperPath, command, flags,
      [answer](std::optional<std::string> serviceName, std::optional<xpc::Endpoint> endpoint) {
        *answer = {true, std::move(serviceName), std::move(endpoint)};
      });
  // A helper that fails its verification is not answered at all. The hoist handles the messages of
  // a connection in order, so when the barrier comes back, the answer has come before it or never
  // will.
  timedBarrier(connection_);
  if (!answer->came)
    throw CommandError(Failure::Refused, "the hoist does not accept the helper; its log says why");
  if (!answer->serviceName)
    throw CommandError(Failure::Refused, "the hoist could not launch the helper; its log says why");
  LaunchedHelperFacts facts{.serviceName = *answer->serviceName};
  if (answer->endpoint) askHelper(*answer->endpoint, facts);
  return facts;
}

}  // namespace hoist::ctl
