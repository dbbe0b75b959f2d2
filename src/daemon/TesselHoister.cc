// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/TesselHoister.h"

#include <fmt/format.h>

#include "daemon/HelperRegistry.h"
#include "daemon/KLHelperGlue.h"
#include "daemon/LaunchHelperTool.h"
#include "daemon/ProcessSampling.h"
#include "daemon/TesselHoist.h"
#include "filesystem/PXPath.h"
#include "logging/Logger.h"
#include "platform/BackgroundPriority.h"
#include "platform/Executable.h"
#include "values/ClassRegistry.h"
#include "values/product.h"

namespace hoist {
HoistTools HoistTools::besideExecutable() {
  std::string folder = platform::executableFolder();
  return {.codesign = folder + "/codesign", .sample = folder + "/sample"};
}

TesselHoister::TesselHoister(uid_t userID, HoistTools tools)
    : userID_(userID), tools_(std::move(tools)), verifier_(tools_.codesign) {}

std::optional<VerifiedExecutable> TesselHoister::verifyHelperAtPath(const std::string& path) {
  return verifier_.verifyHelperAtPath(path);
}

void TesselHoister::launchPrivilegedHelper(
    std::string path, std::string commandName, std::vector<std::string> flags,
    xpc::Reply<std::optional<std::string>, std::optional<xpc::Endpoint>> reply) {
  postKeepAlive();
  auto executable = verifyHelperAtPath(path);
  if (!executable) {
    // The reply is let go uncalled: a client learns nothing of a file that is not a helper.
    auto line = Logger::log(classification::Failure, "helper failed validation");
    Logger::logKeyValue(classification::Details, line, "path", Value(path));
    return;
  }
  LaunchedHelper helper;
  std::optional<std::string> serviceName;
  try {
    auto file = PXFileInfo::infoForOpenFile(executable->file->get(), PXPath::initWithPath(path));
    helper = LaunchHelperTool({.file = file,
                               .executable = *executable,
                               .commandName = std::move(commandName),
                               .flags = std::move(flags),
                               .requireSetUserID = true,
                               .owner = userID_});
    serviceName = helper.serviceName;
  } catch (const Exception& exception) {
    Logger::logMessageWithExceptionDetails(classification::Failure, nullptr,
                                           "failed to launch helper", &exception);
  } catch (const std::exception& error) {
    Logger::log(classification::Failure,
                [&] { return fmt::format("failed to launch helper: {}", error.what()); });
  }
  reply(std::move(serviceName), std::move(helper.endpoint));
  // Only now: until here the client and the next launch have waited for the helper. That may have
  // been long after its end, and the number another process's by now.
  if (!helper.isInBackground) return;
  pid_t process = helper.task->processIdentifier();
  if (HelperRegistry::shared().isHelperOf(process, userID_)) platform::enterIdleClasses(process);
}

void TesselHoister::asyncSample(std::vector<std::int32_t> processes,
                                std::vector<std::string> reports, xpc::Reply<bool> reply) {
  postKeepAlive();
  sampleProcesses({.user = userID_,
                   .processes = std::move(processes),
                   .reports = std::move(reports),
                   .tool = tools_.sample},
                  reply);
}

void TesselHoister::connectWithEndpoint(xpc::Endpoint endpoint, std::string commandID,
                                        xpc::Reply<> reply) {
  auto& glue = KLHelperGlue::shared();
  auto connection = xpc::Connection::currentConnection();
  auto user = connection ? HelperRegistry::shared().userOfHelper(connection->processIdentifier())
                         : std::nullopt;
  // A helper that calls when its launch has given up must not get into another user's launch.
  // Whether the caller runs is asked last: the number of a process that has ended may be a helper's
  // by now, while the connection lives on with whoever holds its descriptor.
  bool isExpected = user && user == glue.turns().user() && connection->isPeerRunning();
  glue.connectWithEndpoint(endpoint, commandID, reply, isExpected);
}

void TesselHoister::queryComponentVersionWithReply(xpc::Reply<std::string> reply) {
  reply(std::string(product::kHoistingVersion));
}

void TesselHoister::queryBuildNumberWithReply(xpc::Reply<std::uint32_t> reply) {
  reply(product::kBuildNumber);
}

void TesselHoister::barrierWithCompletion(xpc::Reply<> completion) {
  completion();
}

void TesselHoister::registerClass(HoistTools tools) {
  ClassRegistry::shared().add(
      {.name = "TesselHoister", .classObject = make<TesselHoisterClass>(std::move(tools))});
}

Ref<xpc::Exportable> TesselHoisterClass::serverObjectForConnection(
    const Ref<xpc::Connection>& connection, xpc::Interface&) {
  return serverObjectForUser(connection->effectiveUserIdentifier());
}

Ref<TesselHoister> TesselHoisterClass::serverObjectForUser(uid_t userID) {
  MutexLock lock(mutex_);
  auto& object = objects_[userID];
  if (!object) object = make<TesselHoister>(userID, tools_);
  return object;
}

}  // namespace hoist
