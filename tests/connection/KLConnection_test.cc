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

// ----- Peers that are other processes ------------------------------------------------------------

// Its candidates are connections to services; lets a test see where its round trip is.
class ServiceClient final : public KLConnection {
 public:
  explicit ServiceClient(std::vector<std::string> names)
      : KLConnection(0, xpc::Interface::interfaceWithProtocol(answeringProtocol())),
        names_(std::move(names)) {
    setIdentifier("other process");
  }
  using KLConnection::barrierCondition;

 protected:
  std::vector<Ref<xpc::Connection>> makeConnections() override {
    std::vector<Ref<xpc::Connection>> candidates;
    for (const auto& name : names_)
      candidates.push_back(xpc::Connection::initWithMachServiceName(name));
    return candidates;
  }

 private:
  const std::vector<std::string> names_;
};

// Serves the name in a process of its own; listens when it has been made.
class PeerProcess {
 public:
  enum class Manner { Answering, Silent };

  PeerProcess(const std::string& folder, const std::string& name,
              Manner manner = Manner::Answering) {
    auto input = makePipe();
    auto output = makePipe();
    ChildTaskOptions options;
    options.launchPath = HOIST_BUILD_DIR "/bin/connection_test_peer";
    options.arguments = {folder, name, manner == Manner::Silent ? "silent" : "answering"};
    options.standardInput = input.reading.get();
    options.standardOutput = output.writing.get();
    task_ = ChildTask::launch(options);
    input_ = std::move(input.writing);
    output_ = std::move(output.reading);
    output.writing.reset();
    waitUntilItSays("ready\n");
  }
  ~PeerProcess() { kill(); }
  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;

  void waitUntilItSays(const std::string& text) {
    std::string said(text.size(), '\0');
    std::size_t got = 0;
    for (ssize_t count = 1; got < said.size() && count > 0; got += static_cast<std::size_t>(count))
      count = ::read(output_.get(), said.data() + got, said.size() - got);
    ASSERT_EQ(said, text);
  }
  // As with -9.
  void kill() {
    task_->kill();
    task_->waitUntilExit();
  }
  // Its own decision, in good order.
  void quit() {
    input_.reset();
    task_->waitUntilExit();
    EXPECT_EQ(task_->terminationStatus(), 0);
  }

 private:
  FileDescriptor input_;
  FileDescriptor output_;
  Ref<ChildTask> task_;
};

class OtherProcess : public Client {
 protected:
  static constexpr const char* kName = "com.kelvo.test";

  OtherProcess() { xpc::setRuntimeDirectory(folder_.path()); }
  ~OtherProcess() override { xpc::setRuntimeDirectory(runtimeDirectory_); }

  std::unique_ptr<PeerProcess> start(const std::string& name = kName,
                                     PeerProcess::Manner manner = PeerProcess::Manner::Answering) {
    return std::make_unique<PeerProcess>(folder_.path(), name, manner);
  }
  // Pings with the connection while the peer stands in the way of an answer, then has the peer out
  // of the way.
  std::pair<bool, Ref<Error>> roundTrip(ServiceClient& connection,
                                        const KLConnection::MessageBlock& block,
                                        const std::function<void()>& meanwhile) {
    std::pair<bool, Ref<Error>> result;
    std::thread caller(
        [&] { result.first = connection.performSynchronousBlock(block, &result.second); });
    meanwhile();
    caller.join();
    return result;
  }

  const std::string runtimeDirectory_ = xpc::runtimeDirectory();
  TemporaryFolder folder_;
};

// Holds up everything behind it for ever.
void sendWithoutAnswer(const xpc::Proxy& proxy) {
  proxy.send<&Answering::refuseWithReply>([](bool) { ADD_FAILURE() << "answered"; });
}

TEST_F(OtherProcess, EndsARoundTripWithAnErrorWhenItIsKilledInTheMiddle) {
  auto process = start();
  auto connection = make<ServiceClient>(std::vector<std::string>{kName});
  std::atomic<int> told = 0;
  connection->setInvalidationHandler([&] { ++told; });
  EXPECT_TRUE(connection->ping());

  auto [succeeded, error] = roundTrip(*connection, sendWithoutAnswer, [&] {
    EXPECT_TRUE(eventually([&] { return connection->barrierCondition() == 2; }));
    process->kill();
  });
  EXPECT_FALSE(succeeded);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), Error::kCocoaDomain);
  EXPECT_EQ(error->code(), Error::kConnectionInterrupted);
  ASSERT_TRUE(eventually([&] { return told == 1; }));
  EXPECT_FALSE(connection->connected());

  // The next use finds whoever serves the name then.
  auto other = KLServiceConnection::initWithServiceName(kName, answeringProtocol());
  EXPECT_FALSE(connection->ping());
  EXPECT_FALSE(other->ping());
  process = start();
  EXPECT_TRUE(connection->ping());
  EXPECT_TRUE(other->ping());
  EXPECT_EQ(told, 1);
}

TEST_F(OtherProcess, EndsTheRoundTripsOfTenThreadsWhenItIsKilled) {
  auto process = start();
  auto connection = make<ServiceClient>(std::vector<std::string>{kName});
  ASSERT_TRUE(connection->ping());
  std::atomic<int> succeeded = 0, failed = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 10; ++i) {
    threads.emplace_back([&] {
      while (connection->ping()) ++succeeded;
      ++failed;
    });
  }
  EXPECT_TRUE(eventually([&] { return succeeded > 100; }));
  process->kill();
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failed, 10);
  EXPECT_EQ(connection->barrierCondition(), 0);
  ASSERT_TRUE(eventually([&] { return !connection->connected(); }));
  process = start();
  EXPECT_TRUE(connection->ping());
}

TEST_F(OtherProcess, IsFoundAgainAfterItQuitByItself) {
  auto process = start();
  auto connection = make<ServiceClient>(std::vector<std::string>{kName});
  std::atomic<bool> told = false;
  connection->setInvalidationHandler([&] { told = true; });
  EXPECT_TRUE(connection->ping());
  process->quit();
  ASSERT_TRUE(eventually([&] { return told.load(); }));
  EXPECT_FALSE(connection->connected());
  process = start();
  EXPECT_TRUE(connection->ping());
  // Quitting is no failure of any message.
  EXPECT_EQ(messageFailuresLogged(), 0u);
  EXPECT_EQ(verifyFailuresLogged(), 0u);
}

TEST_F(OtherProcess, HoldsUpItsCandidateAsLongAsItIsSilentAndTheNextOneIsTaken) {
  auto silent = start("com.kelvo.silent", PeerProcess::Manner::Silent);
  auto process = start();
  auto connection = make<ServiceClient>(
      std::vector<std::string>{"com.kelvo.dead", "com.kelvo.silent", kName, "com.kelvo.unasked"});
  std::atomic<int> called = 0;
  auto [succeeded, error] = roundTrip(
      *connection,
      [&](const xpc::Proxy& proxy) {
        ++called;
        EXPECT_EQ(proxy.connection()->serviceName(), kName);
      },
      [&] {
        silent->waitUntilItSays("silent\n");
        EXPECT_EQ(called, 0);
        silent->kill();
      });
  EXPECT_TRUE(succeeded);
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(called, 1);
  // One was accepted: the failures before it are forgotten.
  EXPECT_EQ(verifyFailuresLogged(), 0u);
}

TEST_F(OtherProcess, IsLoggedOnceForEveryDeadCandidate) {
  auto connection = make<ServiceClient>(std::vector<std::string>{"com.kelvo.dead", kName});
  EXPECT_FALSE(connection->ping());
  EXPECT_FALSE(connection->ping());
  EXPECT_EQ(linesWith("failed to verify connection other process with").size(), 2u);
  auto process = start();
  EXPECT_TRUE(connection->ping());
  process->kill();
  EXPECT_TRUE(eventually([&] { return !connection->connected(); }));
  EXPECT_FALSE(connection->ping());
  EXPECT_EQ(verifyFailuresLogged(), 4u);
}

}  // namespace
}  // namespace hoist
