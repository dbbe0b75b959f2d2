// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/KLConnectionServiceFactory.h"

#include "values/ClassRegistry.h"

namespace hoist {

Ref<KLConnectionServiceFactory> KLConnectionServiceFactory::initWithListener(
    const Ref<xpc::Listener>& listener, std::string serverClass, const xpc::Protocol& protocol) {
  Ref<KLConnectionServiceFactory> factory(
      new KLConnectionServiceFactory(listener, std::move(serverClass), protocol));
  listener->setDelegate(factory);
  listener->resume();
  return factory;
}

bool KLConnectionServiceFactory::shouldAcceptNewConnection(xpc::Listener&,
                                                           const Ref<xpc::Connection>& connection) {
  auto interface = xpc::Interface::interfaceWithProtocol(serverProtocol());
  auto serverClass = ClassRegistry::shared().find(this->serverClass());
  auto factory =
      serverClass ? std::dynamic_pointer_cast<KLConnectionObjectFactory>(serverClass->classObject)
                  : nullptr;
  auto server = factory ? factory->serverObjectForConnection(connection, *interface) : nullptr;
  if (!server) return false;
  connection->setExportedInterface(interface);
  connection->setExportedObject(server);
  connection->resume();
  return true;
}

std::string KLConnectionServiceFactory::serverClass() const {
  MutexLock lock(mutex_);
  return serverClass_;
}

void KLConnectionServiceFactory::setServerClass(std::string name) {
  MutexLock lock(mutex_);
  serverClass_ = std::move(name);
}

}  // namespace hoist
