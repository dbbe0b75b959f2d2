// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Peers that are other processes: they are killed, quit, come back or never answer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "connection/ClientTest.h"
#include "connection/KLServiceConnection.h"
#include "platform/ChildTask.h"
#include "platform/xpc/ServiceSocket.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

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

class OtherProcess : public ClientTest {
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
