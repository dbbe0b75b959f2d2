// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Connection.h"

#include <fmt/format.h>

#include "platform/xpc/Channel.h"
#include "platform/xpc/ServiceSocket.h"

namespace hoist::xpc {
namespace {

Ref<Connection> makeConnection(const Ref<Channel>& channel) {
  auto connection = make<Connection>(channel);
  channel->setOwner(connection);
  return connection;
}

}  // namespace

Ref<Connection> Connection::initWithMachServiceName(std::string serviceName) {
  auto connect = [serviceName](const std::atomic<bool>& cancelled) {
    return connectToService(serviceName, cancelled);
  };
  return makeConnection(Channel::forClient(connect, serviceName));
}

Ref<Connection> Connection::initWithListenerEndpoint(Endpoint endpoint) {
  auto connect = [endpoint = std::move(endpoint)](const std::atomic<bool>& cancelled) {
    return endpoint.connect(&cancelled);
  };
  return makeConnection(Channel::forClient(connect, std::nullopt));
}

Ref<Connection> Connection::initWithSocket(FileDescriptor socket) {
  auto shared = make<FileDescriptor>(std::move(socket));
  auto connect = [shared](const std::atomic<bool>&) { return std::move(*shared); };
  return makeConnection(Channel::forClient(connect, std::nullopt));
}

Ref<Connection> Connection::initWithChannel(const Ref<Channel>& channel) {
  return makeConnection(channel);
}

Connection::Connection(Ref<Channel> channel) : channel_(std::move(channel)) {}

Connection::~Connection() {
  channel_->invalidate();
}

Ref<Connection> Connection::currentConnection() {
  auto channel = Channel::current();
  return channel ? channel->owner() : nullptr;
}

void Connection::setRemoteObjectInterface(Ref<Interface> interface) {
  channel_->setRemoteInterface(std::move(interface));
}
Ref<Interface> Connection::remoteObjectInterface() const {
  return channel_->remoteInterface();
}
void Connection::setExportedInterface(Ref<Interface> interface) {
  channel_->calls().setInterface(std::move(interface));
}
Ref<Interface> Connection::exportedInterface() const {
  return channel_->calls().interface();
}
void Connection::setExportedObject(Ref<Exportable> object) {
  channel_->calls().setObject(std::move(object));
}
Ref<Exportable> Connection::exportedObject() const {
  return channel_->calls().object();
}
void Connection::setInvalidationHandler(std::function<void()> handler) {
  channel_->setInvalidationHandler(std::move(handler));
}

Ref<Proxy> Connection::remoteObjectProxy() {
  return remoteObjectProxyWithErrorHandler(nullptr);
}
Ref<Proxy> Connection::remoteObjectProxyWithErrorHandler(ErrorHandler handler) {
  return make<Proxy>(std::static_pointer_cast<Connection>(shared_from_this()), std::move(handler));
}

void Connection::resume() {
  channel_->resume();
}
void Connection::runUntil(Clock::Instant deadline) {
  channel_->runUntil(deadline);
}
bool Connection::isResumed() const {
  return channel_->isResumed();
}
void Connection::invalidate() {
  channel_->invalidate();
}

std::optional<std::string> Connection::serviceName() const {
  return channel_->serviceName();
}
uid_t Connection::effectiveUserIdentifier() const {
  return channel_->peer().user;
}
gid_t Connection::effectiveGroupIdentifier() const {
  return channel_->peer().group;
}
pid_t Connection::processIdentifier() const {
  return channel_->peer().process;
}
Peer Connection::peer() const {
  return channel_->peer();
}
FileDescriptor Connection::processDescriptor() const {
  return channel_->processDescriptor();
}
bool Connection::isPeerRunning() const {
  return channel_->isPeerRunning();
}
bool Connection::isPeerConnected() const {
  return channel_->isPeerConnected();
}

std::string Connection::description() const {
  auto text = Object::description();
  if (serviceName()) return fmt::format("{} connection to service named {}", text, *serviceName());
  auto other = peer();
  if (!channel_->isAccepted()) return fmt::format("{} connection to an endpoint", text);
  return fmt::format("{} connection from user {}, process {}", text, other.user, other.process);
}

// ----- The peer's object -------------------------------------------------------------------------

Proxy::Proxy(Ref<Connection> connection, ErrorHandler handler)
    : connection_(std::move(connection)), handler_(std::move(handler)) {}

Proxy::~Proxy() = default;

void Proxy::send(const Method& method, const Write& write) const {
  sendMessage(method.key, write, nullptr);
}

void Proxy::sendMessage(const void* key, const Write& write, Read read) const {
  auto interface = connection_->remoteObjectInterface();
  const Method* method = interface ? interface->protocol().methodWithKey(key) : nullptr;
  if (!method) throw std::logic_error("the remote object interface has no such operation");
  connection_->channel_->sendCall(*method, interface, write, std::move(read), handler_);
}

}  // namespace hoist::xpc
