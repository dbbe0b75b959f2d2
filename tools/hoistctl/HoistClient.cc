// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/HoistClient.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "connection/CommandInfo.h"
#include "connection/protocols/CommandMessaging.h"
#include "connection/protocols/TesselHoisting.h"
#include "hoistctl/Ask.h"
#include "platform/Bundle.h"

namespace hoist::ctl {
namespace {

namespace fs = std::filesystem;

std::chrono::nanoseconds timedBarrier(KLConnection& connection) {
  auto start = std::chrono::steady_clock::now();
  Ref<Error> error;
  if (!connection.syncReturningError(&error)) throwFailure(connection, error);
  return std::chrono::steady_clock::now() - start;
}

// The kernel's word on a process's users; everybody may read it.
void readUsers(HelperFacts& facts) {
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

}  // namespace

HoistClient::HoistClient(std::string serviceName)
    : connection_(KLServiceConnection::initWithServiceName(std::move(serviceName),
                                                           tesselHoistingProtocol())) {
  // The first call is the test, and says why when it fails.
  connection_->setVerifyConnection(false);
}

std::string HoistClient::componentVersion() {
  return ask<&KLComponentInstalling::queryComponentVersionWithReply, std::string>(*connection_);
}

std::uint32_t HoistClient::buildNumber() {
  return ask<&KLComponentInstalling::queryBuildNumberWithReply, std::uint32_t>(*connection_);
}

std::chrono::nanoseconds HoistClient::barrier() {
  // Connecting is no part of it.
  connection_->connect();
  return timedBarrier(*connection_);
}

void HoistClient::createSupportFolder() {
  roundTrip(*connection_, [](const xpc::Proxy& proxy) {
    proxy.send<&TesselHoisting::createBootApplicationSupportPathForUser>();
  });
}

LaunchedHelper HoistClient::launch(const std::string& helperPath, const std::string& command,
                                   const std::vector<std::string>& flags) {
  // A helper that fails its verification is not answered at all.
  auto answer = tryAsk<&TesselHoisting::launchPrivilegedHelper, std::optional<std::string>,
                       std::optional<xpc::Endpoint>>(*connection_, helperPath, command, flags);
  if (!answer)
    throw CommandError(Failure::Refused, "the hoist does not accept the helper; its log says why");
  auto& [serviceName, endpoint] = *answer;
  if (!serviceName)
    throw CommandError(Failure::Refused, "the hoist could not launch the helper; its log says why");
  return {*serviceName, endpoint};
}

std::string pathFromHere(const std::string& path) {
  std::error_code failure;
  fs::path text = fs::absolute(path, failure);
  if (failure) return path;
  if (!text.has_filename()) text = text.parent_path();
  bool isName = text.filename() != "." && text.filename() != "..";
  fs::path folder = fs::canonical(isName ? text.parent_path() : text, failure);
  if (failure) return text.lexically_normal();
  return isName ? folder / text.filename() : folder;
}

std::string helperExecutable(const std::string& path) {
  std::error_code failure;
  std::string absolute = pathFromHere(path);
  if (!fs::is_directory(absolute, failure)) return absolute;
  auto bundle = platform::Bundle::bundleWithPath(absolute);
  auto executable = bundle ? bundle->executablePath() : std::nullopt;
  if (!executable)
    throw CommandError(Failure::Usage, path + ": no application bundle with an executable");
  return *executable;
}

Ref<KLEndpointConnection> connectToHelper(const LaunchedHelper& helper,
                                          const std::string& command) {
  if (!helper.endpoint)
    throw CommandError(Failure::Unreachable, "the helper did not publish an endpoint in time");
  return KLEndpointConnection::initWithEndpoint(*helper.endpoint, helper.serviceName,
                                                CommandInfo::interfaceForName(command));
}

HelperFacts askHelper(KLConnection& helper) {
  helper.connect();
  HelperFacts facts;
  facts.barrier = timedBarrier(helper);
  facts.name = ask<&CommandMessaging::queryNameWithReply, std::string>(helper);
  facts.humanReadableName =
      ask<&CommandMessaging::queryHumanReadableNameWithReply, std::string>(helper);
  facts.process = static_cast<pid_t>(std::atoi(
      ask<&CommandMessaging::queryProcessIdentifierWithReply, std::string>(helper).c_str()));
  facts.privileged = ask<&CommandMessaging::queryIsPrivilegedWithReply, bool>(helper);
  readUsers(facts);
  return facts;
}

}  // namespace hoist::ctl
