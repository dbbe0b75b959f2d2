// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Listener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/SystemCall.h"
#include "platform/dbus/SocketIO.h"
#include "platform/xpc/testing/RawPeer.h"
#include "platform/xpc/testing/TestService.h"
#include "platform/xpc/testing/TroubleLog.h"

namespace hoist::xpc {
namespace {

namespace fs = std::filesystem;

bool answers(const Ref<Connection>& connection) {
  Outcome<> barrier;
  ask<&Talking::barrierWithCompletion>(connection, barrier);
  return barrier.error() == nullptr;
}

class Umask {
 public:
  explicit Umask(mode_t mask) : previous_(::umask(mask)) {}
  ~Umask() { ::umask(previous_); }

 private:
  mode_t previous_;
};

TEST(Listener, MakesASocketThatEverybodyMayUseWhateverTheUmask) {
  Umask mask(0077);
  TemporaryFolder folder;
  setRuntimeDirectory(folder / "run");
  auto listener = Listener::initWithMachServiceName("com.kelvo.modes");
  struct stat facts;
  ASSERT_EQ(::lstat((folder / "run").c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode, mode_t{S_IFDIR | 0755});
  ASSERT_EQ(::lstat((folder / "run/com.kelvo.modes").c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode, mode_t{S_IFSOCK | 0666});
}

TEST(Listener, ReplacesAStaleSocketNeverALiveOne) {
  TemporaryFolder folder;
  setRuntimeDirectory(folder.path());
  // A socket's file whose listener is gone, as after a crash.
  auto path = folder / TestService::kName;
  {
    auto listener = Listener::initWithMachServiceName(TestService::kName);
    fs::rename(path, folder / "kept");
    listener->invalidate();
    fs::rename(folder / "kept", path);
  }
  ASSERT_THROW(RawPeer{path}, SystemCallError);
  TestService service{TestService::kName};
  EXPECT_TRUE(answers(service.connect()));
  try {
    Listener::initWithMachServiceName(TestService::kName);
    ADD_FAILURE();
  } catch (const SystemCallError& error) {
    EXPECT_EQ(error.number(), EADDRINUSE);
  }
  EXPECT_TRUE(answers(service.connect()));
}

TEST(Listener, ReplacesAFileThatIsNoSocket) {
  TemporaryFolder folder;
  setRuntimeDirectory(folder.path());
  folder.write(TestService::kName, "text");
  TestService service{TestService::kName};
  EXPECT_TRUE(answers(service.connect()));
}

TEST(Listener, RefusesNamesThatAreNoFileNames) {
  TemporaryFolder folder;
  setRuntimeDirectory(folder.path());
  for (std::string name : {std::string(), std::string("."), std::string(".."), std::string("a/b"),
                           std::string("a\0b", 3), std::string(200, 'a')}) {
    EXPECT_THROW(Listener::initWithMachServiceName(name), std::invalid_argument) << name;
  }
}

TEST(Listener, RemovesItsSocketAndNoOtherWhenItIsInvalidated) {
  TemporaryFolder folder;
  setRuntimeDirectory(folder.path());
  auto path = folder / TestService::kName;
  auto first = Listener::initWithMachServiceName(TestService::kName);
  first->invalidate();
  EXPECT_FALSE(fs::exists(path));
  auto second = Listener::initWithMachServiceName(TestService::kName);
  fs::remove(path);
  auto third = Listener::initWithMachServiceName(TestService::kName);
  second->invalidate();
  second->invalidate();
  EXPECT_TRUE(fs::exists(path));
}

TEST(Listener, KeepsClientsWaitingUntilItIsResumed) {
  TemporaryFolder folder;
  setRuntimeDirectory(folder.path());
  auto listener = Listener::initWithMachServiceName("com.kelvo.later");
  auto connection = Connection::initWithMachServiceName("com.kelvo.later");
  connection->setRemoteObjectInterface(Interface::interfaceWithProtocol(talkingProtocol()));
  connection->resume();
  Outcome<> barrier;
  ask<&Talking::barrierWithCompletion>(connection, barrier);
  struct Delegate : ListenerDelegate {
    bool shouldAcceptNewConnection(Listener&, const Ref<Connection>& accepted) override {
      accepted->setExportedInterface(Interface::interfaceWithProtocol(talkingProtocol()));
      accepted->setExportedObject(make<Talker>());
      accepted->resume();
      return true;
    }
  };
  auto delegate = make<Delegate>();
  listener->setDelegate(delegate);
  EXPECT_FALSE(barrier.isThere());
  listener->resume();
  EXPECT_EQ(barrier.error(), nullptr);
}

TEST(Listener, ClosesAConnectionThatTheDelegateRefuses) {
  TestService service;
  service.setRefuses(true);
  Outcome<> barrier, invalidated;
  auto connection = service.connect();
  connection->setInvalidationHandler(invalidated.reply());
  ask<&Talking::barrierWithCompletion>(connection, barrier);
  EXPECT_NE(barrier.error(), nullptr);
  service.setRefuses(false);
  EXPECT_TRUE(answers(service.connect()));
}

TEST(Listener, ClosesAConnectionThatTheDelegateAcceptsButDoesNotResume) {
  TemporaryFolder folder;
  setRuntimeDirectory(folder.path());
  struct Delegate : ListenerDelegate {
    bool shouldAcceptNewConnection(Listener&, const Ref<Connection>& connection) override {
      kept = connection;
      return true;
    }
    Ref<Connection> kept;
  };
  auto delegate = make<Delegate>();
  auto listener = Listener::initWithMachServiceName(TestService::kName);
  listener->setDelegate(delegate);
  listener->resume();
  RawPeer peer(folder / TestService::kName);
  EXPECT_TRUE(peer.authenticate().isClosed());
}

TEST(Listener, RefusesEverybodyWithoutADelegateOrWhenItRaises) {
  TemporaryFolder folder;
  setRuntimeDirectory(folder.path());
  auto listener = Listener::initWithMachServiceName(TestService::kName);
  listener->resume();
  RawPeer first(folder / TestService::kName);
  EXPECT_TRUE(first.authenticate().isClosed());
  struct Delegate : ListenerDelegate {
    bool shouldAcceptNewConnection(Listener&, const Ref<Connection>&) override {
      throw std::runtime_error("no");
    }
  };
  auto delegate = make<Delegate>();
  listener->setDelegate(delegate);
  RawPeer second(folder / TestService::kName);
  EXPECT_TRUE(second.authenticate().isClosed());
}

TEST(Listener, LetsAcceptedConnectionsLiveOnWhenItIsInvalidated) {
  TestService service;
  auto connection = service.connect();
  ASSERT_TRUE(answers(connection));
  service.listener()->invalidate();
  EXPECT_TRUE(answers(connection));
  Outcome<> refused;
  ask<&Talking::barrierWithCompletion>(service.connect(), refused);
  EXPECT_NE(refused.error(), nullptr);
}

TEST(Listener, MakesADistinctInterfaceForEveryConnection) {
  TestService service;
  auto first = service.connect();
  auto firstAccepted = service.lastAccepted();
  auto second = service.connect();
  auto secondAccepted = service.lastAccepted();
  EXPECT_NE(firstAccepted->exportedInterface(), secondAccepted->exportedInterface());
  EXPECT_EQ(firstAccepted->exportedObject(), secondAccepted->exportedObject());
}

TEST(Endpoint, LeadsToItsListener) {
  TestService service;
  auto connection = service.connectToEndpoint();
  EXPECT_TRUE(answers(connection));
  EXPECT_EQ(connection->serviceName(), std::nullopt);
  Outcome<std::uint32_t, std::int32_t> who;
  ask<&Talking::askWhoCalls>(connection, who);
  EXPECT_EQ(who.values(), std::make_tuple(::geteuid(), ::getpid()));
}

TEST(Endpoint, IsTheSameEachTimeAndMayBeSharedByMany) {
  TestService service;
  auto first = service.listener()->endpoint();
  auto second = service.listener()->endpoint();
  EXPECT_EQ(first.descriptor(), second.descriptor());
  for (int count = 0; count < 20; ++count) EXPECT_TRUE(answers(service.connectToEndpoint()));
}

TEST(Endpoint, OfAnAnonymousListenerNeedsNoName) {
  TestService service;
  auto listener = Listener::anonymousListener();
  auto endpoint = listener->endpoint();
  struct Delegate : ListenerDelegate {
    bool shouldAcceptNewConnection(Listener&, const Ref<Connection>& accepted) override {
      accepted->setExportedInterface(Interface::interfaceWithProtocol(talkingProtocol()));
      accepted->setExportedObject(make<Talker>());
      accepted->resume();
      return true;
    }
  };
  auto delegate = make<Delegate>();
  listener->setDelegate(delegate);
  listener->resume();
  auto connection = Connection::initWithListenerEndpoint(endpoint);
  connection->setRemoteObjectInterface(Interface::interfaceWithProtocol(talkingProtocol()));
  connection->resume();
  EXPECT_TRUE(answers(connection));
}

TEST(Endpoint, IgnoresAndClosesWhateverIsNoRequest) {
  TroubleLog log;
  TestService service;
  auto endpoint = service.listener()->endpoint();
  auto kept = service.connectToEndpoint();
  ASSERT_TRUE(answers(kept));
  auto before = countDescriptors();
  auto request = [&](std::string_view bytes, std::vector<FileDescriptor> descriptors) {
    dbus::OutgoingMessage message;
    message.bytes.assign(bytes.begin(), bytes.end());
    message.descriptors = std::move(descriptors);
    EXPECT_EQ(dbus::send(endpoint.descriptor(), message, 0).status, dbus::IOStatus::kDone);
  };
  auto descriptors = [](std::initializer_list<int> borrowed) {
    std::vector<FileDescriptor> owned;
    for (int one : borrowed) owned.push_back(FileDescriptor::duplicate(one));
    return owned;
  };
  int pair[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  FileDescriptor stream(pair[0]), other(pair[1]);
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair), 0);
  FileDescriptor packets(pair[0]), otherPackets(pair[1]);
  FileDescriptor unconnected(::socket(AF_UNIX, SOCK_STREAM, 0));
  FileDescriptor internet(::socket(AF_INET, SOCK_STREAM, 0));

  request("C", {});
  request("X", descriptors({stream.get()}));
  request("CC", descriptors({stream.get()}));
  request("C", descriptors({stream.get(), stream.get()}));
  request("C", descriptors({0}));
  request("C", descriptors({packets.get()}));
  request("C", descriptors({unconnected.get()}));
  request("C", descriptors({internet.get()}));
  request(std::string(100, 'C'), descriptors({stream.get()}));
  ASSERT_EQ(::send(endpoint.descriptor(), "", 0, 0), 0);

  stream.reset();
  EXPECT_TRUE(RawPeer(std::move(other)).isClosed());
  EXPECT_FALSE(log.has("authenticated")) << "what was passed was taken for a connection";
  EXPECT_TRUE(answers(service.connectToEndpoint()));
  for (auto* mine : {&packets, &otherPackets, &unconnected, &internet}) mine->reset();
  EXPECT_TRUE(eventually([&] { return countDescriptors() <= before; }));
}

TEST(Endpoint, IsMadeAnewWhenAHolderHasShutItDown) {
  TestService service;
  auto endpoint = service.listener()->endpoint();
  ASSERT_EQ(::shutdown(endpoint.descriptor(), SHUT_RDWR), 0);
  EXPECT_TRUE(eventually(
      [&] { return service.listener()->endpoint().descriptor() != endpoint.descriptor(); }));
  EXPECT_TRUE(answers(service.connectToEndpoint()));
  EXPECT_TRUE(answers(service.connect()));
}

TEST(Endpoint, IsRefusedWhenItIsNone) {
  EXPECT_THROW(Endpoint::fromDescriptor(FileDescriptor::duplicate(0)), DecodeError);
  EXPECT_THROW(Endpoint::fromDescriptor(FileDescriptor(::socket(AF_UNIX, SOCK_STREAM, 0))),
               DecodeError);
}

}  // namespace
}  // namespace hoist::xpc
