// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <cstdlib>

#include "connection/protocols/KLComponentMessaging.h"
#include "helper/HelperTool.h"
#include "values/product.h"
using namespace hoist;

// What the helper does for its clients; the interface com.kelvo.Greeting on the wire.
class Greeting : public virtual KLComponentMessaging {
 public:
  virtual void greet(std::string name, xpc::Reply<std::string> reply) = 0;
};
const xpc::Protocol& greetingProtocol() {
  static const auto& protocol =
      *new xpc::Protocol(xpc::Protocol("Greeting")
                             .adopts(klComponentMessagingProtocol())
                             .method<&Greeting::greet>("greet:withReply:", {"name"}, {"greeting"}));
  return protocol;
}

class Greeter final : public Greeting {
  void barrierWithCompletion(xpc::Reply<> completion) override { completion(); }
  void greet(std::string name, xpc::Reply<std::string> reply) override {
    reply("Hello " + name + ", user " + std::to_string(::getuid()) + " speaking");
  }
};

int main() {
  auto tool = HelperTool::start(product::kHelperVersion);  // reads what the hoist wants
  if (!tool) return 1;
  auto interface = xpc::Interface::interfaceWithProtocol(greetingProtocol());
  tool->serve(make<Greeter>(), interface, [] { std::_Exit(0); });  // when the last client leaves
  if (!tool->couple()) return 1;                                   // hands the hoist the endpoint
  tool->accept();
  for (;;) ::pause();
}
