// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/KLConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "connection/ClientTest.h"
#include "connection/KLEndpointConnection.h"
#include "connection/KLServiceConnection.h"
#include "platform/Dispatch.h"
#include "platform/NotificationCenter.h"
#include "platform/xpc/ServiceSocket.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

using Client = ClientTest;

// ----- Connecting --------------------------------------------------------------------------------

TEST_F(Client, ConnectsOnFirstUseAndOnlyOnce) {
  EXPECT_FALSE(connection_->connected());
  connection_->connect();
  EXPECT_TRUE(connection_->connected());
  auto made = connection_->made;
  connection_->connect();
  EXPECT_EQ(connection_->made, made);
  EXPECT_EQ(peer_.answerer->barriers, 1);
}

TEST_F(Client, AnswersTheSameProxyAndPostsOneNotification) {
  std::vector<Ref<Object>> told;
  bool onMainThread = true;
  auto observer = NotificationCenter::defaultCenter().addObserver(
      KLConnection::kDidConnectNotification, connection_.get(), [&](const Notification& one) {
        told.push_back(one.object);
        onMainThread &= RunLoop::main().isMainThread();
      });
  auto proxy = connection_->serviceProxy();
  EXPECT_TRUE(proxy);
  EXPECT_EQ(connection_->serviceProxy(), proxy);
  EXPECT_THAT(told, IsEmpty());  // posted asynchronously
  bool passed = false;
  dispatch::mainQueue().async([&] { passed = true; });
  ASSERT_TRUE(eventually([&] { return passed; }));
  EXPECT_THAT(told, ElementsAre(connection_));
  EXPECT_TRUE(onMainThread);
  EXPECT_EQ(connection_->proxies, 1);
}

TEST_F(Client, SendsNoBarrierToASingleCandidateThatIsNotVerified) {
  EXPECT_TRUE(connection_->verifyConnection());
  connection_->setVerifyConnection(false);
  connection_->connect();
  EXPECT_TRUE(connection_->connected());
  EXPECT_TRUE(connection_->ping());
  EXPECT_EQ(peer_.answerer->barriers, 1);  // the ping's
}

TEST_F(Client, VerifiesEachOfTwoCandidatesWhateverIsAsked) {
  TestPeer dead;
  dead.refuses = true;
  auto connection = make<TestConnection>(std::vector{&dead, &peer_});
  connection->setVerifyConnection(false);
  EXPECT_TRUE(connection->ping());
  EXPECT_EQ(peer_.answerer->barriers, 2);
  // The first one's failure is forgotten.
  EXPECT_EQ(verifyFailuresLogged(), 0u);
}

TEST_F(Client, TakesTheFirstCandidateThatAnswers) {
  TestPeer second;
  auto connection = make<TestConnection>(std::vector{&peer_, &second});
  connection->connect();
  EXPECT_EQ(peer_.answerer->barriers, 1);
  EXPECT_EQ(second.answerer->barriers, 0);
}

TEST_F(Client, HasNoConnectionInTheBaseClass) {
  auto bare = KLConnection::initWithXPCOptions(0, answeringProtocol());
  EXPECT_FALSE(bare->serviceProxy());
  EXPECT_FALSE(bare->connected());
  EXPECT_EQ(bare->identifier(), std::nullopt);
  Ref<Error> error;
  EXPECT_FALSE(bare->syncReturningError(&error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), "NSCocoaErrorDomain");
  EXPECT_EQ(error->code(), 4099);
  EXPECT_TRUE(error->userInfo().empty());
  // Again: nothing was left locked.
  EXPECT_FALSE(bare->ping());
  EXPECT_FALSE(bare->disconnect());
}

TEST_F(Client, CallsNoBlockWithoutAConnectionAndLeavesTheErrorAlone) {
  peer_.refuses = true;
  auto before = make<Error>("before", 1);
  auto error = before;
  EXPECT_FALSE(connection_->performSynchronousBlock(
      [](const xpc::Proxy&) { ADD_FAILURE() << "called"; }, &error));
  EXPECT_EQ(error, before);
}

TEST_F(Client, LogsFailuresToVerifyOnceUntilOneSucceeds) {
  peer_.refuses = true;
  EXPECT_FALSE(connection_->ping());
  EXPECT_FALSE(connection_->connected());
  ASSERT_EQ(verifyFailuresLogged(), 1u);
  EXPECT_THAT(linesWith("failed to verify").front(),
              StartsWith("failed to verify connection test with <NSXPCConnection: 0x"));
  EXPECT_FALSE(connection_->ping());
  EXPECT_EQ(verifyFailuresLogged(), 1u);

  peer_.refuses = false;
  EXPECT_TRUE(connection_->ping());
  EXPECT_TRUE(connection_->disconnect());
  peer_.refuses = true;
  EXPECT_FALSE(connection_->ping());
  EXPECT_EQ(verifyFailuresLogged(), 2u);
}

TEST_F(Client, LogsWhyACandidateFailed) {
  peer_.answerer->refusesBarriers = true;
  connection_->connect();
  EXPECT_EQ(verifyFailuresLogged(), 1u);
  EXPECT_THAT(logger_->texts(), Contains(HasSubstr("no barrier today")));
}

TEST_F(Client, LogsNoFurtherFailureBecauseOneWasAcceptedUntested) {
  peer_.refuses = true;
  EXPECT_FALSE(connection_->ping());
  peer_.refuses = false;
  connection_->setVerifyConnection(false);
  connection_->connect();
  EXPECT_TRUE(connection_->disconnect());
  peer_.refuses = true;
  connection_->setVerifyConnection(true);
  EXPECT_FALSE(connection_->ping());
  EXPECT_EQ(verifyFailuresLogged(), 1u);
}

TEST_F(Client, EndsACandidateThatFailed) {
  peer_.answerer->refusesBarriers = true;
  connection_->connect();
  EXPECT_FALSE(connection_->connected());
  EXPECT_FALSE(connection_->made.front()->isPeerConnected());
}

TEST_F(Client, LogsEveryCandidateThatFailed) {
  TestPeer other;
  peer_.refuses = other.refuses = true;
  auto connection = make<TestConnection>(std::vector{&peer_, &other});
  connection->connect();
  EXPECT_EQ(verifyFailuresLogged(), 2u);
}

TEST_F(Client, FailsToVerifyAPeerWhoseInterfaceHasNoBarrier) {
  static const auto& protocol = *new xpc::Protocol(xpc::Protocol("Mute"));
  auto connection = KLEndpointConnection::initWithEndpoint(
      peer_.endpoint(), "mute", xpc::Interface::interfaceWithProtocol(protocol));
  EXPECT_FALSE(connection->ping());
  connection->setVerifyConnection(false);
  Ref<Error> error;
  EXPECT_FALSE(connection->syncReturningError(&error));
  EXPECT_THAT(*error->localizedDescription(), HasSubstr("no such operation"));
  // It can be given a better one.
  connection->setServiceInterface(xpc::Interface::interfaceWithProtocol(answeringProtocol()));
  EXPECT_TRUE(connection->ping());
}

// ----- Disconnecting -----------------------------------------------------------------------------

TEST_F(Client, LeavesTheCurrentConnectionAloneWhenAnotherOneEnds) {
  connection_->connect();
  auto old = connection_->made.front();
  EXPECT_TRUE(connection_->disconnectConnection(old));
  EXPECT_FALSE(connection_->connected());
  EXPECT_FALSE(old->isPeerConnected());
  auto proxy = connection_->serviceProxy();
  EXPECT_FALSE(connection_->disconnectConnection(old));
  EXPECT_TRUE(connection_->connected());
  EXPECT_EQ(connection_->serviceProxy(), proxy);
}

TEST_F(Client, ConnectsAgainAfterItsDisconnectionWithANewProxy) {
  auto proxy = connection_->serviceProxy();
  connection_->setInvalidationHandler([] { ADD_FAILURE() << "its own end"; });
  EXPECT_TRUE(connection_->disconnect());
  EXPECT_FALSE(connection_->disconnect());
  EXPECT_TRUE(connection_->ping());
  EXPECT_NE(connection_->serviceProxy(), proxy);
  EXPECT_EQ(connection_->proxies, 2);
}

TEST_F(Client, LetsItsProxyGoWhenItIsDisconnected) {
  WeakRef<xpc::Proxy> proxy = connection_->serviceProxy();
  EXPECT_FALSE(proxy.expired());
  connection_->disconnect();
  EXPECT_TRUE(proxy.expired());
}

TEST_F(Client, LogsTheInvalidationEvenWhenItWasNeverConnected) {
  connection_.reset();
  EXPECT_THAT(logger_->texts(classification::Debug),
              ElementsAre("-[KLConnection disconnect_Internal] invalidating connection (test)"));
  KLConnection::initWithXPCOptions(0, answeringProtocol());
  EXPECT_THAT(logger_->texts(classification::Debug),
              Contains("-[KLConnection disconnect_Internal] invalidating connection ((null))"));
}

TEST_F(Client, TellsItsOwnerWhenTheSystemEndsTheConnection) {
  bool told = false;
  connection_->setInvalidationHandler([&] { told = RunLoop::main().isMainThread(); });
  EXPECT_TRUE(connection_->ping());
  peer_.endConnections();
  // On the queue that connected: the main queue.
  ASSERT_TRUE(eventually([&] { return told; }));
  EXPECT_FALSE(connection_->connected());
  EXPECT_TRUE(connection_->ping());
}

TEST_F(Client, TellsItsOwnerOnTheSerialQueueThatConnectedEvenIfNobodyElseHoldsIt) {
  auto queue = dispatch::makeSerialQueue();
  std::atomic<dispatch::Queue*> told = nullptr;
  auto* expected = queue.get();
  connection_->setInvalidationHandler([&] { told = &dispatch::currentQueue(); });
  queue->sync([&] { EXPECT_TRUE(connection_->ping()); });
  queue.reset();
  peer_.endConnections();
  ASSERT_TRUE(eventually([&] { return told != nullptr; }));
  EXPECT_EQ(told, expected);
}

TEST_F(Client, TellsItsOwnerNothingOfAConnectionThatItHasEndedMeanwhile) {
  auto queue = dispatch::makeSerialQueue();
  connection_->setInvalidationHandler([] { ADD_FAILURE() << "told"; });
  queue->sync([&] { connection_->connect(); });
  auto connection = connection_->made.front();
  ConditionLock gate(0);
  queue->async([&] { gate.lockWhenCondition(1); });
  // Let go right behind the handler of the end, which waits on the queue by then.
  connection->setExportedObject(make<Answerer>());
  peer_.endConnections();
  ASSERT_TRUE(eventually([&] { return connection->exportedObject() == nullptr; }));
  EXPECT_TRUE(connection_->disconnect());
  gate.transitionToCondition(1);
  queue->sync([] {});
}

TEST_F(Client, TellsItsOwnerOfAnUnverifiedConnectionThatNeverCameAbout) {
  peer_.refuses = true;
  bool told = false;
  connection_->setVerifyConnection(false);
  connection_->setInvalidationHandler([&] { told = true; });
  connection_->connect();
  EXPECT_TRUE(eventually([&] { return told; }));
  EXPECT_FALSE(connection_->connected());
}

TEST_F(Client, TellsNobodyOnceTheHandlerIsCleared) {
  connection_->setInvalidationHandler([] { ADD_FAILURE() << "told"; });
  connection_->setInvalidationHandler(nullptr);
  EXPECT_FALSE(connection_->invalidationHandler());
  EXPECT_TRUE(connection_->ping());
  peer_.endConnections();
  EXPECT_TRUE(eventually([&] { return !connection_->connected(); }));
}

TEST_F(Client, WaitsForASilentPeerUntilTheSystemEndsTheConnection) {
  peer_.answerer->holdsBarriers = true;
  std::thread caller([&] { connection_->connect(); });
  EXPECT_TRUE(eventually([&] { return peer_.answerer->barriers == 1; }));
  peer_.endConnections();
  caller.join();
  EXPECT_FALSE(connection_->connected());
  EXPECT_EQ(verifyFailuresLogged(), 1u);
}

TEST_F(Client, DoesNothingInHandlersThatOutliveIt) {
  bool told = false, posted = false;
  connection_->setInvalidationHandler([&] { told = true; });
  auto observer = NotificationCenter::defaultCenter().addObserver(
      KLConnection::kDidConnectNotification, nullptr, [&](const Notification&) { posted = true; });
  auto proxy = connection_->serviceProxy();
  connection_.reset();
  // Its connection has ended with it, so that this one fails.
  proxy->send<&Answering::refuseWithReply>([](bool) { ADD_FAILURE() << "answered"; });
  peer_.endConnections();
  WeakRef<xpc::Connection> ended = proxy->connection();
  proxy.reset();
  ASSERT_TRUE(eventually([&] { return ended.expired(); }));
  bool passed = false;
  dispatch::mainQueue().async([&] { passed = true; });
  ASSERT_TRUE(eventually([&] { return passed; }));
  EXPECT_FALSE(told);
  EXPECT_FALSE(posted);
  EXPECT_EQ(messageFailuresLogged(), 0u);
}

TEST_F(Client, IsNotKeptAliveByItsHandlers) {
  EXPECT_TRUE(connection_->ping());
  WeakRef<KLConnection> weak = connection_;
  connection_.reset();
  // A completion that is just running holds it until it has run.
  EXPECT_TRUE(eventually([&] { return weak.expired(); }));
}

// ----- The subclasses ----------------------------------------------------------------------------

TEST_F(Client, ReachesAListenerThroughItsEndpoint) {
  auto connection = KLEndpointConnection::initWithEndpoint(
      peer_.endpoint(), "helper.4711.1",
      xpc::Interface::interfaceWithProtocol(answeringProtocol()));
  EXPECT_EQ(connection->identifier(), "helper.4711.1");
  EXPECT_TRUE(connection->ping());
}

TEST_F(Client, NamesTheServiceThatNobodyOffers) {
  auto connection =
      KLServiceConnection::initWithServiceName("com.kelvo.nobody", answeringProtocol());
  EXPECT_EQ(connection->identifier(), "com.kelvo.nobody");
  EXPECT_FALSE(connection->ping());
  EXPECT_THAT(linesWith("failed to verify connection com.kelvo.nobody"), SizeIs(1));
  connection->setVerifyConnection(false);
  EXPECT_FALSE(connection->ping());
  EXPECT_THAT(linesWith("message from"),
              ElementsAre("message from com.kelvo.nobody to com.kelvo.nobody failed"));
}

}  // namespace
}  // namespace hoist
