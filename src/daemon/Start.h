// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "connection/protocols/TesselHoisting.h"
#include "daemon/KLHelperGlue.h"
#include "daemon/TesselHoist.h"
#include "platform/xpc/Listener.h"
#include "values/product.h"

namespace hoist {

// The steps of the daemon's start, called once from main in this order, each on the main thread.

// Makes the process fit to be a daemon: three standard descriptors, whatever it was started with,
// no signal of a broken pipe, all descriptors that the system grants.
void prepareProcess();

// Makes known every class that is looked up by name, and sends the platform's reports to the
// logger.
void registerClasses();

// The service's listener; null, with a line in the log, when there is none to be had.
Ref<xpc::Listener> makeListener();

// Tells the service manager, if there is one, that connections are served.
void notifyReady();

}  // namespace hoist
