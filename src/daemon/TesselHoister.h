// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "connection/KLConnectionObjectFactory.h"
#include "connection/protocols/TesselHoisting.h"
#include "daemon/CodeSignVerifier.h"
#include "platform/Mutex.h"
#include "values/Object.h"

namespace hoist {

// The programs that the service runs, by path.
struct HoistTools {
  std::string codesign;
  std::string sample;

  // Those that stand beside the running program's executable.
  static HoistTools besideExecutable();
};

// Serves the clients of one user: there is one object for each effective user ID, for the life of
// the process, so that all connections of a user share its verified helper. Safe from any thread.
class TesselHoister final : public Object, public TesselHoisting {
 public:
  // initWithUser:
  TesselHoister(uid_t userID, HoistTools tools);

  uid_t userID() const { return userID_; }

  // Not in the protocol: the executable, if the path is that of a validly signed bundle's main
  // executable.
  std::optional<VerifiedExecutable> verifyHelperAtPath(const std::string& path);

  void launchPrivilegedHelper(
      std::string path, std::string commandName, std::vector<std::string> flags,
      xpc::Reply<std::optional<std::string>, std::optional<xpc::Endpoint>> reply) override;
  void createBootApplicationSupportPathForUser() override;
  void asyncSample(std::vector<std::int32_t> processes, std::vector<std::string> reports,
                   xpc::Reply<bool> reply) override;

  void connectWithEndpoint(xpc::Endpoint endpoint, std::string commandID,
                           xpc::Reply<> reply) override;
  void queryComponentVersionWithReply(xpc::Reply<std::string> reply) override;
  void queryBuildNumberWithReply(xpc::Reply<std::uint32_t> reply) override;
  void barrierWithCompletion(xpc::Reply<> completion) override;

  std::string className() const override { return "TesselHoister"; }

  // Makes the class known to the class registry, with the programs that its objects run.
  static void registerClass(HoistTools tools);

 private:
  const uid_t userID_;
  const HoistTools tools_;
  HelperVerifier verifier_;
  Mutex supportFolderMutex_;
};

// The class operation: keeps one object for each user. Objects are never removed. Safe from any
// thread.
class TesselHoisterClass final : public Object, public KLConnectionObjectFactory {
 public:
  explicit TesselHoisterClass(HoistTools tools) : tools_(std::move(tools)) {}

  Ref<xpc::Exportable> serverObjectForConnection(const Ref<xpc::Connection>& connection,
                                                 xpc::Interface& interface) override;
  Ref<TesselHoister> serverObjectForUser(uid_t userID);

  std::string className() const override { return "TesselHoister class"; }

 private:
  const HoistTools tools_;
  Mutex mutex_;
  std::map<uid_t, Ref<TesselHoister>> objects_ GUARDED_BY(mutex_);
};

}  // namespace hoist
