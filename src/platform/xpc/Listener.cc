// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Listener.h"

#include "platform/xpc/Acceptor.h"

namespace hoist::xpc {

ListenerDelegate::~ListenerDelegate() = default;

Ref<Listener> Listener::anonymousListener(Limits limits) {
  auto acceptor = make<Acceptor>(std::nullopt, std::string(), limits);
  auto listener = make<Listener>(std::nullopt, acceptor);
  acceptor->setListener(listener);
  return listener;
}

Listener::Listener(std::optional<std::string> serviceName, Ref<Acceptor> acceptor)
    : serviceName_(std::move(serviceName)), acceptor_(std::move(acceptor)) {}

Listener::~Listener() {
  acceptor_->invalidate();
}

void Listener::setDelegate(WeakRef<ListenerDelegate> delegate) {
  acceptor_->setDelegate(std::move(delegate));
}
void Listener::setIsHelper(std::function<bool(const Peer&, int)> isHelper) {
  acceptor_->setIsHelper(std::move(isHelper));
}
Endpoint Listener::endpoint() {
  return acceptor_->endpoint();
}
void Listener::resume() {
  acceptor_->resume();
}
void Listener::invalidate() {
  acceptor_->invalidate();
}

std::string Listener::description() const {
  auto text = Object::description();
  return serviceName_ ? text + " for service named " + *serviceName_ : text + " anonymous";
}

}  // namespace hoist::xpc
