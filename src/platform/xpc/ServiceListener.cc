// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Listeners of services are apart from those of endpoints, so that a program that only has the
// latter (a helper) is linked without the former and need not load the library that passed sockets
// come from.

#include "platform/xpc/Acceptor.h"
#include "platform/xpc/Listener.h"
#include "platform/xpc/PassedSockets.h"
#include "platform/xpc/ServiceSocket.h"

namespace hoist::xpc {
namespace {

ServiceSocket takeOrMakeSocket(const std::string& serviceName) {
  if (auto passed = takePassedSocket(serviceName)) return {std::move(passed), {}};
  return ServiceSocket::makeForServiceName(serviceName);
}

}  // namespace

Ref<Listener> Listener::initWithMachServiceName(std::string serviceName, Limits limits) {
  auto acceptor = make<Acceptor>(takeOrMakeSocket(serviceName), serviceName, limits);
  auto listener = make<Listener>(std::move(serviceName), acceptor);
  acceptor->setListener(listener);
  return listener;
}

}  // namespace hoist::xpc
