// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The hoist's start, as a list of steps. It is started on demand by the first client's connection
// and ends by itself.

#include <cstdlib>

#include "daemon/Start.h"

int main() {
  using namespace hoist;
  prepareProcess();
  registerClasses();
  static auto& hoist = *new TesselHoist([](int status) { std::exit(status); });
  TesselHoist::setSharedHoist(&hoist);
  auto listener = makeListener();
  // Another instance serves, or nothing can be served: staying would block the next start on
  // demand.
  if (!listener) return 0;
  KLHelperGlue::shared().setHelperCouplingServiceName(std::string(product::kHoistServiceName));
  hoist.setConnectionVendor(KLConnectionServiceFactory::initWithListener(listener, "TesselHoister",
                                                                         tesselHoistingProtocol()));
  notifyReady();
  hoist.run();
}
