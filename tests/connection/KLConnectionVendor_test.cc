// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/KLConnectionVendor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "connection/KLConnectionServiceFactory.h"
#include "connection/protocols/KLComponentMessaging.h"
#include "platform/ConditionLock.h"
#include "values/ClassRegistry.h"

namespace hoist {
namespace {

class Server final : public Object, public KLComponentMessaging {
 public:
  void barrierWithCompletion(xpc::Reply<> completion) override { completion(); }
  std::string className() const override { return "TestServer"; }
};

// Answers the same object for all connections, or refuses; remembers what it was asked.
class ServerClass final : public Object, public KLConnectionObjectFactory {
 public:
  Ref<xpc::Exportable> serverObjectForConnection(const Ref<xpc::Connection>& connection,
                                                 xpc::Interface& interface) override {
    std::lock_guard lock(mutex);
    connections.push_back(connection);
    interfaces.push_back(&interface);
    return refuses ? nullptr : server;
  }
  std::string className() const override { return "TestServer class"; }

  std::atomic<bool> refuses = false;
  Ref<Server> server = make<Server>();
  std::mutex mutex;
  std::vector<Ref<xpc::Connection>> connections;
  std::vector<const xpc::Interface*> interfaces;
};

Ref<xpc::Connection> connectTo(const xpc::Endpoint& endpoint) {
  auto connection = xpc::Connection::initWithListenerEndpoint(endpoint);
  connection->setRemoteObjectInterface(
      xpc::Interface::interfaceWithProtocol(klComponentMessagingProtocol()));
  connection->resume();
  return connection;
}

// Whether a barrier comes back through the connection.
bool isServed(const Ref<xpc::Connection>& connection) {
  auto answered = ConditionLock::messageLock();
  auto served = make<std::atomic<bool>>(false);
  auto proxy = connection->remoteObjectProxyWithErrorHandler(
      [answered](const Ref<Error>&) { answered->messageReplied(); });
  proxy->send<&KLComponentMessaging::barrierWithCompletion>([answered, served] {
    *served = true;
    answered->messageReplied();
  });
  answered->waitForMessageReply();
  return *served;
}
bool isServed(const xpc::Endpoint& endpoint) {
  return isServed(connectTo(endpoint));
}

class Vendor : public testing::Test {
 protected:
  Vendor() { ClassRegistry::shared().add({.name = "TestServer", .classObject = serverClass_}); }
  ~Vendor() override { ClassRegistry::shared().remove("TestServer"); }
  Ref<KLConnectionServiceFactory> makeFactory() {
    return KLConnectionServiceFactory::initWithListener(listener_, "TestServer",
                                                        klComponentMessagingProtocol());
  }

  Ref<xpc::Listener> listener_ = xpc::Listener::anonymousListener();
  Ref<ServerClass> serverClass_ = make<ServerClass>();
};

TEST_F(Vendor, RefusesEveryConnectionByItself) {
  auto vendor = KLConnectionVendor::initWithListener(listener_);
  listener_->resume();
  EXPECT_FALSE(isServed(*vendor->endpoint()));
  auto connection = xpc::Connection::initWithListenerEndpoint(*vendor->endpoint());
  EXPECT_FALSE(vendor->shouldAcceptNewConnection(*listener_, connection));
  EXPECT_FALSE(connection->isResumed());
}

TEST_F(Vendor, HasNoEndpointAfterItsShutdown) {
  auto vendor = KLConnectionVendor::initWithListener(listener_);
  listener_->resume();
  EXPECT_TRUE(vendor->endpoint());
  vendor->shutdown();
  EXPECT_FALSE(vendor->endpoint());
  vendor->shutdown();
  EXPECT_FALSE(vendor->endpoint());
}

TEST_F(Vendor, EndsItsListenerWhenItGoesAway) {
  auto vendor = KLConnectionVendor::initWithListener(listener_);
  listener_->resume();
  auto endpoint = *vendor->endpoint();
  vendor.reset();
  // Even a factory cannot have it serve again.
  auto factory = makeFactory();
  EXPECT_FALSE(isServed(endpoint));
}

TEST_F(Vendor, WithdrawsItsNameBeforeItsListenerEnds) {
  struct Published final : KLConnectionVendor {
    explicit Published(Ref<xpc::Listener> listener) : KLConnectionVendor(std::move(listener)) {}
    void redact() override { hadListener = listener() != nullptr; }
    bool hadListener = false;
  };
  auto vendor = make<Published>(listener_);
  vendor->shutdown();
  EXPECT_TRUE(vendor->hadListener);
}

TEST_F(Vendor, ServesAsAFactoryAsSoonAsItExists) {
  auto factory = makeFactory();
  EXPECT_EQ(factory->serverClass(), "TestServer");
  EXPECT_EQ(&factory->serverProtocol(), &klComponentMessagingProtocol());
  EXPECT_TRUE(isServed(*factory->endpoint()));
}

TEST_F(Vendor, MakesAnInterfaceForEachConnection) {
  auto factory = makeFactory();
  // Both stay open: a connection lets its interface go when it ends.
  auto first = connectTo(*factory->endpoint());
  auto second = connectTo(*factory->endpoint());
  EXPECT_TRUE(isServed(first));
  EXPECT_TRUE(isServed(second));
  std::lock_guard lock(serverClass_->mutex);
  ASSERT_EQ(serverClass_->connections.size(), 2u);
  EXPECT_NE(serverClass_->interfaces[0], serverClass_->interfaces[1]);
  for (int i : {0, 1}) {
    EXPECT_EQ(serverClass_->connections[i]->exportedInterface().get(), serverClass_->interfaces[i]);
    EXPECT_EQ(serverClass_->connections[i]->exportedObject(), serverClass_->server);
  }
}

TEST_F(Vendor, ServesNoConnectionThatItsServerClassRefuses) {
  auto factory = makeFactory();
  serverClass_->refuses = true;
  EXPECT_FALSE(isServed(*factory->endpoint()));
  std::lock_guard lock(serverClass_->mutex);
  ASSERT_EQ(serverClass_->connections.size(), 1u);
  EXPECT_EQ(serverClass_->connections[0]->exportedObject(), nullptr);
}

TEST_F(Vendor, LeavesAConnectionThatItsServerClassRefusesAsItWas) {
  auto factory = makeFactory();
  serverClass_->refuses = true;
  auto connection = xpc::Connection::initWithListenerEndpoint(*factory->endpoint());
  EXPECT_FALSE(factory->shouldAcceptNewConnection(*listener_, connection));
  EXPECT_FALSE(connection->isResumed());
  EXPECT_EQ(connection->exportedInterface(), nullptr);
}

TEST_F(Vendor, RefusesWhenThereIsNoSuchServerClass) {
  auto factory = makeFactory();
  factory->setServerClass("NobodyKnowsThisClass");
  EXPECT_FALSE(isServed(*factory->endpoint()));
}

TEST_F(Vendor, LetsAcceptedConnectionsLiveOnAfterItsShutdown) {
  auto factory = makeFactory();
  auto connection = connectTo(*factory->endpoint());
  EXPECT_TRUE(isServed(connection));
  auto endpoint = *factory->endpoint();
  factory->shutdown();
  EXPECT_TRUE(isServed(connection));
  EXPECT_FALSE(isServed(endpoint));
}

}  // namespace
}  // namespace hoist
