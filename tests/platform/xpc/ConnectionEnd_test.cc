// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What happens to messages that are not answered, and to connections that end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <thread>

#include "platform/xpc/Limits.h"
#include "platform/xpc/testing/TestService.h"
#include "platform/xpc/testing/TroubleLog.h"

namespace hoist::xpc {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

Ref<Connection> connectionTo(const std::string& name) {
  auto connection = Connection::initWithMachServiceName(name);
  connection->setRemoteObjectInterface(Interface::interfaceWithProtocol(talkingProtocol()));
  return connection;
}

TEST(ConnectionEnd, GivesAnErrorWhenNobodyListens) {
  TestService service;
  auto connection = connectionTo("com.kelvo.nobody");
  Outcome<> invalidated, outcome;
  connection->setInvalidationHandler(invalidated.reply());
  ask<&Talking::barrierWithCompletion>(connection, outcome);
  connection->resume();
  EXPECT_EQ(outcome.error()->domain(), Error::kCocoaDomain);
  EXPECT_EQ(outcome.error()->code(), Error::kConnectionInvalid);
  EXPECT_THAT(*outcome.error()->localizedDescription(), HasSubstr("com.kelvo.nobody"));
  invalidated.values();
}

TEST(ConnectionEnd, GivesAnErrorForAMessageWithoutAReplyThatCouldNotBeSent) {
  TestService service;
  auto connection = connectionTo("com.kelvo.nobody");
  Outcome<> outcome;
  connection->remoteObjectProxyWithErrorHandler(outcome.errorHandler())
      ->send<&Talking::note>("lost");
  connection->resume();
  EXPECT_EQ(outcome.error()->code(), Error::kConnectionInvalid);
}

TEST(ConnectionEnd, NeverCallsTheErrorHandlerOnTheSendersStack) {
  TestService service;
  auto connection = service.connect();
  connection->invalidate();
  std::promise<std::thread::id> handled;
  connection
      ->remoteObjectProxyWithErrorHandler(
          [&](const Ref<Error>&) { handled.set_value(std::this_thread::get_id()); })
      ->send<&Talking::barrierWithCompletion>([] {});
  EXPECT_NE(handled.get_future().get(), std::this_thread::get_id());
}

TEST(ConnectionEnd, TellsEveryOutstandingMessageOnceAndThenTheInvalidationHandler) {
  TestService service;
  auto connection = service.connect();
  std::atomic<int> errors = 0, replies = 0;
  std::promise<int> errorsAtInvalidation;
  connection->setInvalidationHandler([&] { errorsAtInvalidation.set_value(errors); });
  auto proxy = connection->remoteObjectProxyWithErrorHandler([&](const Ref<Error>& error) {
    EXPECT_EQ(error->code(), Error::kConnectionInterrupted);
    ++errors;
  });
  for (int count = 0; count < 10; ++count) {
    proxy->send<&Talking::keep>("", [&](std::string) { ++replies; });
  }
  ASSERT_TRUE(eventually([&] { return service.talker()->keptCount() == 10; }));
  service.lastAccepted()->invalidate();
  EXPECT_EQ(errorsAtInvalidation.get_future().get(), 10);
  EXPECT_EQ(replies, 0);
  // Too late, and without effect.
  service.talker()->takeKept()("late");
}

TEST(ConnectionEnd, TellsTheSenderThatTheConnectionWasInvalidatedByItself) {
  TestService service;
  auto connection = service.connect();
  Outcome<std::string> outcome;
  Outcome<> invalidated;
  connection->setInvalidationHandler(invalidated.reply());
  ask<&Talking::keep>(connection, outcome, "");
  service.talker()->takeKept();
  connection->invalidate();
  connection->invalidate();
  EXPECT_EQ(outcome.error()->code(), Error::kConnectionInvalid);
  invalidated.values();
}

TEST(ConnectionEnd, TellsTheServiceWhenTheLastHandleGoes) {
  TestService service;
  auto connection = service.connect();
  auto accepted = service.lastAccepted();
  Outcome<> ended;
  accepted->setInvalidationHandler(ended.reply());
  connection.reset();
  ended.values();
  EXPECT_FALSE(accepted->isPeerConnected());
}

TEST(ConnectionEnd, CallsNoInvalidationHandlerThatWasCleared) {
  TestService service;
  auto connection = service.connect();
  auto held = std::make_shared<int>();
  connection->setInvalidationHandler([held] { ADD_FAILURE(); });
  connection->setInvalidationHandler(nullptr);
  Outcome<> barrier;
  ask<&Talking::barrierWithCompletion>(connection, barrier);
  barrier.values();
  connection->invalidate();
  EXPECT_EQ(held.use_count(), 1);
}

TEST(ConnectionEnd, CallsAnInvalidationHandlerThatIsSetTooLate) {
  TestService service;
  auto connection = service.connect();
  Outcome<> first, second;
  connection->setInvalidationHandler(first.reply());
  connection->invalidate();
  first.values();
  connection->setInvalidationHandler(second.reply());
  second.values();
}

TEST(ConnectionEnd, EndsAConnectionThatNeverBegan) {
  TestService service;
  auto connection = connectionTo(TestService::kName);
  Outcome<> invalidated, outcome;
  connection->setInvalidationHandler(invalidated.reply());
  ask<&Talking::barrierWithCompletion>(connection, outcome);
  connection->invalidate();
  EXPECT_EQ(outcome.error()->code(), Error::kConnectionInvalid);
  invalidated.values();
  connection->resume();
  EXPECT_EQ(service.accepted(), 0u);
}

TEST(ConnectionEnd, LetsTheExportedObjectGo) {
  WeakRef<Talker> exported;
  {
    TestService service;
    exported = service.talker();
    auto connection = service.connect();
    service.lastAccepted();
  }
  EXPECT_TRUE(eventually([&] { return exported.expired(); }));
}

TEST(ConnectionEnd, GoesOnWhenAHandlerRaises) {
  TroubleLog log;
  TestService service;
  auto connection = service.connect();
  Outcome<std::string> unanswered;
  Outcome<> barrier;
  ask<&Talking::fail>(connection, unanswered, "went wrong");
  ask<&Talking::barrierWithCompletion>(connection, barrier);
  barrier.values();
  EXPECT_FALSE(unanswered.isThere());
  EXPECT_THAT(log.linesWith("went wrong"), SizeIs(1));
}

TEST(ConnectionEnd, GoesOnWhenACompletionRaises) {
  TroubleLog log;
  TestService service;
  auto connection = service.connect();
  std::atomic<int> errors = 0;
  connection->remoteObjectProxyWithErrorHandler([&](const Ref<Error>&) { ++errors; })
      ->send<&Talking::barrierWithCompletion>([] { throw std::runtime_error("in completion"); });
  Outcome<> barrier;
  ask<&Talking::barrierWithCompletion>(connection, barrier);
  barrier.values();
  EXPECT_EQ(errors, 0);
  EXPECT_TRUE(log.has("in completion"));
}

TEST(ConnectionEnd, IgnoresAndReportsASecondCallOfAReply) {
  TroubleLog log;
  TestService service;
  auto connection = service.connect();
  Outcome<std::string> outcome;
  ask<&Talking::keep>(connection, outcome, "");
  auto reply = service.talker()->takeKept();
  reply("first");
  reply("second");
  EXPECT_EQ(std::get<0>(outcome.values()), "first");
  EXPECT_THAT(log.linesWith("second time"), SizeIs(1));
  Outcome<> barrier;
  ask<&Talking::barrierWithCompletion>(connection, barrier);
  barrier.values();
}

TEST(ConnectionEnd, LeavesTheSenderOfADroppedReplyWaiting) {
  TestService service;
  auto connection = service.connect();
  Outcome<std::string> outcome;
  ask<&Talking::keep>(connection, outcome, "");
  service.talker()->takeKept() = Reply<std::string>();
  Outcome<> barrier;
  ask<&Talking::barrierWithCompletion>(connection, barrier);
  barrier.values();
  EXPECT_FALSE(outcome.isThere());
}

TEST(ConnectionEnd, CallsAReplyOnceWhenManyThreadsDo) {
  TroubleLog log;
  TestService service;
  auto connection = service.connect();
  Outcome<std::string> outcome;
  ask<&Talking::keep>(connection, outcome, "");
  auto reply = service.talker()->takeKept();
  std::vector<std::jthread> threads;
  for (int count = 0; count < 8; ++count) threads.emplace_back([reply] { reply("mine"); });
  threads.clear();
  EXPECT_EQ(std::get<0>(outcome.values()), "mine");
  EXPECT_THAT(log.linesWith("second time"), SizeIs(7));
}

TEST(ConnectionEnd, FailsTheCallBeyondTheBoundOfOutstandingOnes) {
  TestService service;
  auto connection = service.connect();
  // The calls that stay unanswered fail when the connection goes, after this function.
  auto errors = std::make_shared<std::atomic<int>>(0);
  auto proxy =
      connection->remoteObjectProxyWithErrorHandler([errors](const Ref<Error>&) { ++*errors; });
  for (std::size_t count = 0; count < kOutstandingCalls; ++count) {
    proxy->send<&Talking::keep>("", [](std::string) {});
  }
  Outcome<std::string> beyond;
  ask<&Talking::keep>(connection, beyond, "");
  EXPECT_THAT(*beyond.error()->localizedDescription(), HasSubstr("4096"));
  EXPECT_EQ(*errors, 0);
  // The others are not disturbed, and one answer makes room for one call.
  service.talker()->takeKept()("");
  ASSERT_TRUE(eventually([&] {
    Outcome<> barrier;
    ask<&Talking::barrierWithCompletion>(connection, barrier);
    return barrier.error() == nullptr;
  }));
}

TEST(ConnectionEnd, RefusesAtTheSenderWhatCannotCross) {
  TestService service;
  auto connection = service.connect();
  Value deep(1);
  for (int level = 0; level < 70; ++level) deep = Value(Array{deep});
  Outcome<Dictionary, Date> tooDeep, tooLarge;
  ask<&Talking::echoDictionary>(connection, tooDeep, Dictionary{{"deep", deep}}, Date());
  EXPECT_NE(tooDeep.error(), nullptr);
  ask<&Talking::echoDictionary>(
      connection, tooLarge, Dictionary{{"large", std::string(kHelperMessageSize, 'x')}}, Date());
  EXPECT_NE(tooLarge.error(), nullptr);
  struct Opaque : Object {
    std::string className() const override { return "Opaque"; }
  };
  Outcome<Dictionary, Date> opaque;
  ask<&Talking::echoDictionary>(connection, opaque,
                                Dictionary{{"opaque", Value(Ref<Object>(make<Opaque>()))}}, Date());
  EXPECT_THAT(*opaque.error()->localizedDescription(), HasSubstr("Opaque"));
  Outcome<> barrier;
  ask<&Talking::barrierWithCompletion>(connection, barrier);
  barrier.values();
}

TEST(ConnectionEnd, RefusesAnOperationThatTheInterfaceDoesNotHave) {
  TestService service;
  auto connection = service.connect();
  connection->setRemoteObjectInterface(Interface::interfaceWithProtocol(greetingProtocol()));
  EXPECT_THROW(connection->remoteObjectProxy()->send<&Talking::note>(""), std::logic_error);
}

TEST(ConnectionEnd, SaysSoWhenTheListenerOfAnEndpointIsGone) {
  TestService service;
  auto endpoint = service.listener()->endpoint();
  service.listener()->invalidate();
  auto connection = Connection::initWithListenerEndpoint(endpoint);
  connection->setRemoteObjectInterface(Interface::interfaceWithProtocol(talkingProtocol()));
  Outcome<> outcome;
  ask<&Talking::barrierWithCompletion>(connection, outcome);
  connection->resume();
  EXPECT_NE(outcome.error(), nullptr);
}

TEST(ConnectionEnd, TellsTheSenderOfAnAnswerThatIsNotWhatTheInterfaceSays) {
  // The service takes the operation for the one of another signature.
  class Misunderstanding : public virtual Exportable {
   public:
    virtual void keep(std::string text, Reply<std::int32_t> reply) = 0;
  };
  static const Protocol protocol =
      Protocol("Talking").method<&Misunderstanding::keep>("keep:reply:", {"text"}, {"number"});
  TestService service;
  auto connection = service.connect();
  connection->setRemoteObjectInterface(Interface::interfaceWithProtocol(protocol));
  Outcome<std::int32_t> outcome;
  ask<&Misunderstanding::keep>(connection, outcome, "");
  service.talker()->takeKept()("no number");
  EXPECT_EQ(outcome.error()->code(), Error::kConnectionReplyInvalid);
}

}  // namespace
}  // namespace hoist::xpc
