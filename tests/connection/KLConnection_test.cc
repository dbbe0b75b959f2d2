// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/KLConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "connection/KLEndpointConnection.h"
#include "connection/KLServiceConnection.h"
#include "connection/TestPeer.h"
#include "platform/ChildTask.h"
#include "platform/Dispatch.h"
#include "platform/NotificationCenter.h"
#include "platform/RunLoop.h"
#include "platform/xpc/ServiceSocket.h"
#include "support/RecordingLogger.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

// Runs the main queue until the condition holds, which something under way makes true.
bool eventually(const std::function<bool()>& condition) {
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    RunLoop::main().runOnce(1000);
  }
  return true;
}

class Client : public testing::Test {
 protected:
  Client() { connection_ = make<TestConnection>(std::vector{&peer_}); }

  std::vector<std::string> linesWith(const std::string& text) const {
    std::vector<std::string> found;
    for (const auto& line : logger_->texts(classification::Debug))
      if (line.find(text) != std::string::npos) found.push_back(line);
    return found;
  }
  std::size_t verifyFailuresLogged() const { return linesWith("failed to verify").size(); }
  std::size_t messageFailuresLogged() const { return linesWith("message from").size(); }

  Ref<RecordingLogger> logger_ = make<RecordingLogger>();
  ScopedDefaultLogger<RecordingLogger> scope_{logger_};
  TestPeer peer_;
  Ref<TestConnection> connection_;
};

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

// ----- Round trips -------------------------------------------------------------------------------

TEST_F(Client, HasEverythingHandledWhenARoundTripIsBack) {
  auto error = make<Error>("before", 1);
  EXPECT_TRUE(connection_->performSynchronousBlock(
      [](const xpc::Proxy& proxy) {
        for (int i = 0; i < 100; ++i) proxy.send<&Answering::count>();
      },
      &error));
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(peer_.answerer->counted, 100);
}

TEST_F(Client, OnlyLogsAProxyErrorOutsideOfARoundTrip) {
  auto proxy = connection_->serviceProxy();
  for (int round = 0; round < 2; ++round) {
    proxy->send<&Answering::refuseWithReply>([](bool) { ADD_FAILURE() << "answered"; });
    peer_.answerer->gate.messageReplied();
    // The gate closes behind the message, and its error comes before the next barrier.
    peer_.answerer->gate.sleepUntilCondition(0);
    ASSERT_TRUE(eventually([&] { return messageFailuresLogged() == 1; }));
    EXPECT_EQ(connection_->barrierCondition(), 0);
  }
  EXPECT_THAT(linesWith("message from"), ElementsAre("message from test to (null) failed"));
  EXPECT_TRUE(connection_->connected());
}

TEST_F(Client, FailsTheRoundTripInWhichAMessageFailed) {
  Ref<Error> error;
  bool succeeded = true;
  std::thread caller([&] {
    succeeded = connection_->performSynchronousBlock(
        [](const xpc::Proxy& proxy) { proxy.send<&Answering::refuseWithReply>([](bool) {}); },
        &error);
  });
  EXPECT_TRUE(eventually([&] { return connection_->barrierCondition() == 2; }));
  peer_.answerer->gate.messageReplied();
  caller.join();
  EXPECT_FALSE(succeeded);
  EXPECT_EQ(error->code(), Error::kConnectionReplyInvalid);
  EXPECT_EQ(messageFailuresLogged(), 1u);
  // The barrier that came back afterwards ends no later round trip and blocks none.
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(connection_->ping());
  EXPECT_EQ(connection_->barrierCondition(), 0);
}

TEST_F(Client, LogsMessageFailuresAgainAfterARoundTripWithoutOne) {
  auto fail = [&] {
    std::thread caller([&] {
      EXPECT_FALSE(connection_->performSynchronousBlock(
          [](const xpc::Proxy& proxy) { proxy.send<&Answering::refuseWithReply>([](bool) {}); }));
    });
    EXPECT_TRUE(eventually([&] { return connection_->barrierCondition() == 2; }));
    peer_.answerer->gate.messageReplied();
    caller.join();
  };
  fail();
  fail();
  EXPECT_EQ(messageFailuresLogged(), 1u);
  EXPECT_TRUE(connection_->ping());
  fail();
  EXPECT_EQ(messageFailuresLogged(), 2u);
}

TEST_F(Client, LetsTenThreadsMakeRoundTripsOnOneObject) {
  constexpr int kThreads = 10, kRounds = 50;
  std::atomic<int> succeeded = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        succeeded += connection_->performSynchronousBlock(
            [](const xpc::Proxy& proxy) { proxy.send<&Answering::count>(); });
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(succeeded, kThreads * kRounds);
  EXPECT_EQ(peer_.answerer->counted, kThreads * kRounds);
  EXPECT_EQ(peer_.answerer->barriers, kThreads * kRounds + 1);
  EXPECT_EQ(connection_->proxies, 1);
}

TEST_F(Client, SurvivesThreadsThatDisconnectWhileOthersMakeRoundTrips) {
  std::atomic<bool> done = false;
  std::thread cutter([&] {
    while (!done) {
      connection_->disconnect();
      std::this_thread::yield();
    }
  });
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 30; ++round) {
        Ref<Error> error;
        bool succeeded = connection_->syncReturningError(&error);
        EXPECT_EQ(succeeded, error == nullptr);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  done = true;
  cutter.join();
  EXPECT_EQ(connection_->barrierCondition(), 0);
}

// ----- Disconnecting -----------------------------------------------------------------------------

TEST_F(Client, LeavesTheCurrentConnectionAloneWhenAnotherOneEnds) {
  connection_->connect();
  auto old = connection_->made.front();
  EXPECT_TRUE(connection_->disconnectConnection(old));
  EXPECT_FALSE(connection_->connected());
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

TEST_F(Client, IsNotKeptAliveByItsHandlers) {
  EXPECT_TRUE(connection_->ping());
  WeakRef<KLConnection> weak = connection_;
  connection_.reset();
  EXPECT_TRUE(weak.expired());
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

// ----- A peer that is another process ------------------------------------------------------------

// Lets a test see where its round trip is.
class ServiceClient final : public KLConnection {
 public:
  explicit ServiceClient(std::string name)
      : KLConnection(0, xpc::Interface::interfaceWithProtocol(answeringProtocol())),
        name_(std::move(name)) {}
  using KLConnection::barrierCondition;

 protected:
  Ref<xpc::Connection> makeConnection() override {
    return xpc::Connection::initWithMachServiceName(name_);
  }

 private:
  const std::string name_;
};

class OtherProcess : public Client {
 protected:
  static constexpr const char* kName = "com.kelvo.test";

  OtherProcess() { xpc::setRuntimeDirectory(folder_.path()); }
  ~OtherProcess() override {
    kill();
    xpc::setRuntimeDirectory(runtimeDirectory_);
  }

  // Answers when it listens.
  void start() {
    auto input = makePipe();
    auto output = makePipe();
    ChildTaskOptions options;
    options.launchPath = HOIST_BUILD_DIR "/bin/connection_test_peer";
    options.arguments = {folder_.path(), kName};
    options.standardInput = input.reading.get();
    options.standardOutput = output.writing.get();
    peerProcess_ = ChildTask::launch(options);
    output.writing.reset();
    input_ = std::move(input.writing);
    char text[16] = {};
    ASSERT_GT(::read(output.reading.get(), text, sizeof text - 1), 0);
    ASSERT_STREQ(text, "ready\n");
  }
  // As with -9.
  void kill() {
    if (!peerProcess_) return;
    peerProcess_->kill();
    peerProcess_->waitUntilExit();
    peerProcess_.reset();
  }

  const std::string runtimeDirectory_ = xpc::runtimeDirectory();
  TemporaryFolder folder_;
  FileDescriptor input_;
  Ref<ChildTask> peerProcess_;
};

TEST_F(OtherProcess, EndsARoundTripWithAnErrorWhenItIsKilledInTheMiddle) {
  start();
  auto connection = make<ServiceClient>(kName);
  std::atomic<bool> told = false;
  connection->setInvalidationHandler([&] { told = true; });
  EXPECT_TRUE(connection->ping());

  Ref<Error> error;
  std::thread caller([&] {
    EXPECT_FALSE(connection->performSynchronousBlock(
        // Holds up the barrier behind it for ever.
        [](const xpc::Proxy& proxy) { proxy.send<&Answering::refuseWithReply>([](bool) {}); },
        &error));
  });
  EXPECT_TRUE(eventually([&] { return connection->barrierCondition() == 2; }));
  kill();
  caller.join();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), Error::kCocoaDomain);
  EXPECT_EQ(error->code(), Error::kConnectionInterrupted);
  ASSERT_TRUE(eventually([&] { return told.load(); }));
  EXPECT_FALSE(connection->connected());

  // The next use finds whoever serves the name then.
  auto other = KLServiceConnection::initWithServiceName(kName, answeringProtocol());
  EXPECT_FALSE(connection->ping());
  EXPECT_FALSE(other->ping());
  start();
  EXPECT_TRUE(connection->ping());
  EXPECT_TRUE(other->ping());
}

}  // namespace
}  // namespace hoist
