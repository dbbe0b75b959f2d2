// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/Start.h"

#include <signal.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>

#include "daemon/HelperRegistry.h"
#include "daemon/TesselHoister.h"
#include "exceptions/KLException.h"
#include "logging/LogLineIdentifier.h"
#include "logging/Logger.h"
#include "platform/DescriptorLimit.h"
#include "platform/Exception.h"
#include "platform/StandardDescriptors.h"
#include "platform/SystemCall.h"
#include "values/Error.h"

namespace hoist {

void prepareProcess() {
  platform::openStandardDescriptors();
  // A helper that closes its input must not end the hoist.
  ::signal(SIGPIPE, SIG_IGN);
  ::umask(S_IWGRP | S_IWOTH);
  platform::raiseDescriptorLimit();
}

void registerClasses() {
  Error::registerClass();
  Exception::registerClass();
  LogLineIdentifier::registerClasses();
  Logger::registerClasses();
  Logger::receivePlatformTrouble();
  TesselHoister::registerClass(HoistTools::besideExecutable());
}

Ref<xpc::Listener> makeListener() {
  try {
    auto listener = xpc::Listener::initWithMachServiceName(std::string(product::kHoistServiceName));
    listener->setIsHelper(
        [](const xpc::Peer& peer, int) { return HelperRegistry::shared().isHelper(peer.process); });
    return listener;
  } catch (const SystemCallError& error) {
    auto exception = KLException::exceptionWithName("IO", "cannot listen for clients");
    exception.setPOSIXErr(error.number(), Value(error.call())).setStrPath(Value(error.path()));
    Logger::logMessageWithExceptionDetails(classification::Failure, nullptr,
                                           "the service cannot be served", &exception);
    return nullptr;
  }
}

void notifyReady() {
  ::sd_notify(0, "READY=1");
}

}  // namespace hoist
