// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <limits>
#include <thread>

#include "platform/xpc/testing/TestService.h"

namespace hoist::xpc {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

ino_t inodeOf(int descriptor) {
  struct stat facts;
  ::fstat(descriptor, &facts);
  return facts.st_ino;
}

TEST(Connection, CarriesABarrierThereAndBack) {
  TestService service;
  auto connection = service.connect();
  Outcome<> outcome;
  ask<&Talking::barrierWithCompletion>(connection, outcome);
  EXPECT_EQ(outcome.error(), nullptr);
}

// ----- On the caller's thread --------------------------------------------------------------------

Ref<Connection> makeClient() {
  auto connection = Connection::initWithMachServiceName(TestService::kName);
  connection->setRemoteObjectInterface(Interface::interfaceWithProtocol(talkingProtocol()));
  return connection;
}

TEST(Connection, RunsOnItsCallersThreadUntilACompletionInvalidatesIt) {
  TestService service;
  auto connection = makeClient();
  std::thread::id completed;
  connection->remoteObjectProxy()->send<&Talking::barrierWithCompletion>([&] {
    completed = std::this_thread::get_id();
    EXPECT_EQ(Connection::currentConnection(), connection);
    connection->invalidate();
  });
  connection->runUntil(Clock::Instant::max());
  EXPECT_EQ(completed, std::this_thread::get_id());
  EXPECT_EQ(Connection::currentConnection(), nullptr);
}

TEST(Connection, OnItsCallersThreadEndsAtTheDeadline) {
  TestService service;
  auto connection = makeClient();
  Outcome<std::string> outcome;
  ask<&Talking::keep>(connection, outcome, "for a reply that is never called");
  connection->runUntil(Clock::instant() + std::chrono::milliseconds(50));
  EXPECT_TRUE(outcome.isThere());
  EXPECT_NE(outcome.error(), nullptr);
}

TEST(Connection, OnItsCallersThreadEndsAtTheDeadlineBeforeItIsAuthenticated) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  FileDescriptor silent(ends[1]);
  auto connection = Connection::initWithSocket(FileDescriptor(ends[0]));
  connection->setRemoteObjectInterface(Interface::interfaceWithProtocol(talkingProtocol()));
  Outcome<> outcome;
  ask<&Talking::barrierWithCompletion>(connection, outcome);
  connection->runUntil(Clock::instant());
  ASSERT_TRUE(outcome.isThere());
  EXPECT_THAT(outcome.error()->description(), HasSubstr("the service does not answer"));
}

// ----- What it carries ---------------------------------------------------------------------------

TEST(Connection, CarriesEveryNumberToItsLimits) {
  TestService service;
  auto connection = service.connect();
  Outcome<bool, std::int32_t, std::uint32_t, std::uint16_t, std::int64_t, std::uint64_t, double>
      outcome;
  ask<&Talking::echoNumbers>(
      connection, outcome, true, std::numeric_limits<std::int32_t>::min(),
      std::numeric_limits<std::uint32_t>::max(), std::numeric_limits<std::uint16_t>::max(),
      std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::uint64_t>::max(), -0.1);
  EXPECT_EQ(outcome.values(), std::make_tuple(true, std::numeric_limits<std::int32_t>::min(),
                                              std::numeric_limits<std::uint32_t>::max(),
                                              std::numeric_limits<std::uint16_t>::max(),
                                              std::numeric_limits<std::int64_t>::min(),
                                              std::numeric_limits<std::uint64_t>::max(), -0.1));
}

TEST(Connection, CarriesTextsDataAndLists) {
  TestService service;
  auto connection = service.connect();
  Outcome<std::string, std::vector<std::string>, Data, std::vector<std::int32_t>> outcome;
  std::vector<std::string> strings{"", "ä\n", "b"};
  Data data(std::vector<std::uint8_t>{0, 255, 10});
  ask<&Talking::echoText>(connection, outcome, "", strings, data, std::vector<std::int32_t>{1, -1});
  EXPECT_EQ(outcome.values(),
            std::make_tuple(std::string(), strings, data, std::vector<std::int32_t>{1, -1}));
}

TEST(Connection, ShowsBytesThatAreNoTextAsReplacementCharacters) {
  TestService service;
  auto connection = service.connect();
  Outcome<std::string, std::vector<std::string>, Data, std::vector<std::int32_t>> outcome;
  ask<&Talking::echoText>(connection, outcome, "a\xff",
                          std::vector<std::string>{std::string("\0b", 2)}, Data(),
                          std::vector<std::int32_t>());
  EXPECT_EQ(std::get<0>(outcome.values()), "a\uFFFD");
  EXPECT_THAT(std::get<1>(outcome.values()), ElementsAre("\uFFFDb"));
}

TEST(Connection, CarriesDictionariesWithEveryKindOfValue) {
  TestService service;
  auto connection = service.connect();
  Dictionary dictionary{{"null", Value()},
                        {"true", true},
                        {"integer", -5},
                        {"double", 1.5},
                        {"string", "text"},
                        {"data", Data::fromString("bytes")},
                        {"date", Date(1'700'000'000, 500'000'000)},
                        {"array", Array{1, "two", Array{}, Value()}},
                        {"dictionary", Dictionary{{"", Dictionary{}}}}};
  Outcome<Dictionary, Date> outcome;
  ask<&Talking::echoDictionary>(connection, outcome, dictionary, Date(-1));
  EXPECT_EQ(std::get<0>(outcome.values()), dictionary);
  EXPECT_EQ(std::get<1>(outcome.values()), Date(-1));
}

TEST(Connection, CarriesDescriptorsAndEndpoints) {
  TestService service;
  auto connection = service.connect();
  auto pipe = makePipe();
  Outcome<FileDescriptor, Endpoint> outcome;
  auto inode = inodeOf(pipe.writing.get());
  ask<&Talking::echoHandle>(connection, outcome, std::move(pipe.writing),
                            service.listener()->endpoint());
  ASSERT_EQ(outcome.error(), nullptr);
  EXPECT_EQ(inodeOf(std::get<0>(outcome.values()).get()), inode);

  auto second = Connection::initWithListenerEndpoint(std::get<1>(outcome.values()));
  second->setRemoteObjectInterface(Interface::interfaceWithProtocol(talkingProtocol()));
  second->resume();
  Outcome<> barrier;
  ask<&Talking::barrierWithCompletion>(second, barrier);
  EXPECT_EQ(barrier.error(), nullptr);
}

TEST(Connection, CarriesCodedObjects) {
  Error::registerClass();
  TestService service;
  auto connection = service.connect();
  auto error = make<Error>("Domain", 7, Dictionary{{"inner", Array{1, Data()}}});
  Outcome<Ref<Error>> outcome;
  ask<&Talking::echoObject>(connection, outcome, error);
  EXPECT_TRUE(std::get<0>(outcome.values())->isEqual(*error));
}

TEST(Connection, CarriesWhatMayBeNil) {
  Error::registerClass();
  TestService service;
  auto connection = service.connect();
  using Echo = Outcome<std::optional<std::string>, std::optional<Data>,
                       std::optional<FileDescriptor>, std::optional<Ref<Error>>>;
  Echo nothing, something;
  ask<&Talking::echoNilable>(connection, nothing, std::nullopt, std::nullopt, std::nullopt,
                             std::nullopt);
  EXPECT_FALSE(std::get<0>(nothing.values()) || std::get<1>(nothing.values()) ||
               std::get<2>(nothing.values()) || std::get<3>(nothing.values()));
  ask<&Talking::echoNilable>(connection, something, "", Data(), FileDescriptor::duplicate(0),
                             Error::posix(1));
  EXPECT_EQ(std::get<0>(something.values()), "");
  EXPECT_EQ(std::get<1>(something.values()), Data());
  EXPECT_TRUE(std::get<2>(something.values()).has_value());
  EXPECT_EQ((*std::get<3>(something.values()))->code(), 1);
}

TEST(Connection, CarriesMessagesOfSixteenMebibytesToAHelperAndBack) {
  TestService helper(Limits::forHelper());
  auto connection = helper.connect();
  auto echo = [&](std::size_t size) {
    Outcome<std::string, std::vector<std::string>, Data, std::vector<std::int32_t>> outcome;
    ask<&Talking::echoText>(connection, outcome, std::string(size, 'x'), std::vector<std::string>(),
                            Data(), std::vector<std::int32_t>());
    return outcome;
  };
  auto large = echo(kHelperMessageSize - 1024);
  EXPECT_EQ(std::get<0>(large.values()).size(), kHelperMessageSize - 1024);
  EXPECT_NE(echo(kHelperMessageSize).error(), nullptr);
  EXPECT_EQ(echo(1).error(), nullptr);
}

TEST(Connection, HandlesMessagesInTheOrderInWhichTheyWereSent) {
  TestService service;
  auto connection = service.connect();
  std::vector<std::string> sent;
  for (int number = 0; number < 1000; ++number) {
    sent.push_back(std::to_string(number));
    connection->remoteObjectProxy()->send<&Talking::note>(sent.back());
  }
  Outcome<std::vector<std::string>> outcome;
  ask<&Talking::readNotes>(connection, outcome);
  EXPECT_EQ(std::get<0>(outcome.values()), sent);
}

TEST(Connection, TellsTheHandlerWhoCalls) {
  TestService service;
  auto connection = service.connect();
  Outcome<std::uint32_t, std::int32_t> outcome;
  ask<&Talking::askWhoCalls>(connection, outcome);
  EXPECT_EQ(outcome.values(), std::make_tuple(::geteuid(), ::getpid()));
  EXPECT_EQ(Connection::currentConnection(), nullptr);
}

TEST(Connection, KnowsItsPeer) {
  TestService service;
  auto connection = service.connect();
  EXPECT_EQ(connection->serviceName(), TestService::kName);
  auto accepted = service.lastAccepted();
  EXPECT_EQ(accepted->effectiveUserIdentifier(), ::geteuid());
  EXPECT_EQ(accepted->effectiveGroupIdentifier(), ::getegid());
  EXPECT_EQ(accepted->processIdentifier(), ::getpid());
  EXPECT_EQ(accepted->serviceName(), std::nullopt);
  EXPECT_TRUE(accepted->isPeerConnected());
  EXPECT_THAT(accepted->description(), HasSubstr("from user"));
}

TEST(Connection, ExportsAnObjectFromTheClientToo) {
  TestService service;
  auto connection = Connection::initWithMachServiceName(TestService::kName);
  auto mine = make<Talker>();
  connection->setExportedInterface(Interface::interfaceWithProtocol(talkingProtocol()));
  connection->setExportedObject(mine);
  connection->resume();
  Outcome<std::uint32_t, std::int32_t> outcome;
  ask<&Talking::askWhoCalls>(service.lastAccepted(), outcome);
  EXPECT_EQ(std::get<1>(outcome.values()), ::getpid());
}

TEST(Connection, AnswersWhenTheReplyIsCalledLaterOnAnotherThread) {
  TestService service;
  auto connection = service.connect();
  Outcome<std::string> first, second;
  ask<&Talking::keep>(connection, first, "a");
  ask<&Talking::keep>(connection, second, "b");
  auto replyToFirst = service.talker()->takeKept();
  auto replyToSecond = service.talker()->takeKept();
  replyToSecond("second");
  EXPECT_EQ(std::get<0>(second.values()), "second");
  EXPECT_FALSE(first.isThere());
  replyToFirst("first");
  EXPECT_EQ(std::get<0>(first.values()), "first");
}

}  // namespace
}  // namespace hoist::xpc
