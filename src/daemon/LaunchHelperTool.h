// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "daemon/CodeSignVerifier.h"
#include "filesystem/PXFileInfo.h"
#include "platform/ChildTask.h"
#include "platform/xpc/Endpoint.h"

namespace hoist {

// What a launch answers: the helper's service name, and its endpoint if it came in time.
struct LaunchedHelper {
  Ref<ChildTask> task;
  std::string serviceName;
  std::optional<xpc::Endpoint> endpoint;
  // Whether it has the low priority. Whoever launched it moves it to the idle classes, too, when
  // nobody waits for it any more (platform::enterIdleClasses).
  bool isInBackground = false;
};

// One launch, as the client asked for it.
struct HelperLaunch {
  // The file that was opened for the check, and the bytes that were verified.
  Ref<PXFileInfo> file;
  VerifiedExecutable executable;
  std::string commandName;
  std::vector<std::string> flags;
  bool requireSetUserID = true;
  // The client's user; 0 leaves the file's owner unchecked.
  uid_t owner = 0;
};

// Whether the item exists, is a regular file that its owner can execute, belongs to the given owner
// (unless that is 0) and, if required, is set-user-ID.
bool HelperToolIsInstalledSafely(PXFileInfo& file, uid_t owner, bool requireSetUserID);

// Starts the helper, holds the handshake with it, lowers its priority if the preference says so,
// and waits for its endpoint: up to 60 seconds for the handshake and 20 for the endpoint. Raises
// KLException: "Security" for a helper that must not be started, "Bug" for one that does not
// answer, "Process" for one that refuses. The helper runs on; its end is collected by the registry
// of helpers.
LaunchedHelper LaunchHelperTool(const HelperLaunch& launch);

}  // namespace hoist
