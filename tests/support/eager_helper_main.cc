// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A helper that says that it is ready before it can be reached.

#include <unistd.h>

#include "connection/protocols/KLComponentMessaging.h"
#include "helper/HelperTool.h"
#include "values/product.h"

namespace {

class Service : public hoist::KLComponentMessaging {
  void barrierWithCompletion(hoist::xpc::Reply<> completion) override { completion(); }
};

}  // namespace

int main() {
  using namespace hoist;
  auto tool = HelperTool::start(product::kHelperVersion);
  if (!tool) return 1;
  tool->serve(make<Service>(),
              xpc::Interface::interfaceWithProtocol(klComponentMessagingProtocol()));
  tool->accept();
  if (!tool->couple()) return 1;
  for (;;) ::pause();
}
