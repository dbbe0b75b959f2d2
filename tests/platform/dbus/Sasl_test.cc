// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/dbus/Sasl.h"

#include <gtest/gtest.h>

#include <vector>

namespace hoist::dbus {
namespace {

using namespace std::string_literals;

constexpr uid_t kUser = 1000;
const std::string kToken = "31303030";  // "1000"
const std::string kGuid = "0123456789abcdef0123456789abcdef";
const std::string kOk = "OK " + kGuid + "\r\n";
const std::string kRejected = "REJECTED EXTERNAL\r\n";
const std::string kError = "ERROR\r\n";

struct Conversation {
  SaslState state = SaslState::kNeedMore;
  std::string replies;
  std::string leftOver;
  bool descriptors = false;
  std::string failure;
};

// The whole input in portions of this size.
Conversation converse(std::string_view input, std::size_t portion = std::string_view::npos,
                      uid_t user = kUser, bool offerDescriptors = true) {
  SaslServer server(user, kGuid, offerDescriptors);
  Conversation result;
  while (!input.empty() && result.state == SaslState::kNeedMore) {
    SaslStep step = server.receive(input.substr(0, portion));
    result.state = step.state;
    result.replies += step.reply;
    if (step.state == SaslState::kNeedMore) {
      EXPECT_EQ(step.consumed, std::min(portion, input.size()));
    }
    input.remove_prefix(step.consumed);
  }
  result.leftOver = input;
  result.descriptors = server.fileDescriptorsNegotiated();
  result.failure = server.failure();
  return result;
}

struct Case {
  std::string what;
  std::string input;  // behind the NUL
  std::string replies;
  SaslState state;
  bool descriptors = false;
  std::string leftOver = {};
};

const std::vector<Case>& conversations() {
  static auto& cases = *new std::vector<Case>{
      {"libdbus", "AUTH EXTERNAL " + kToken + "\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n",
       kOk + "AGREE_UNIX_FD\r\n", SaslState::kAuthenticated, true},
      {"sd-bus, in one write with its first call",
       "AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\nl\1\0\1"s,
       "DATA\r\n" + kOk + "AGREE_UNIX_FD\r\n", SaslState::kAuthenticated, true, "l\1\0\1"s},
      {"GDBus", "AUTH\r\nAUTH EXTERNAL " + kToken + "\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n",
       kRejected + kOk + "AGREE_UNIX_FD\r\n", SaslState::kAuthenticated, true},
      {"no descriptors wanted", "AUTH EXTERNAL " + kToken + "\r\nBEGIN\r\n", kOk,
       SaslState::kAuthenticated},
      {"token as data", "AUTH EXTERNAL\r\nDATA " + kToken + "\r\nBEGIN\r\n", "DATA\r\n" + kOk,
       SaslState::kAuthenticated},
      {"blank instead of a token", "AUTH EXTERNAL \r\nDATA \r\nBEGIN\r\n", "DATA\r\n" + kOk,
       SaslState::kAuthenticated},
      {"other user", "AUTH EXTERNAL 30\r\n", kRejected, SaslState::kNeedMore},
      {"other user as data", "AUTH EXTERNAL\r\nDATA 30\r\n", "DATA\r\n" + kRejected,
       SaslState::kNeedMore},
      {"other user, then begin all the same", "AUTH EXTERNAL 30\r\nBEGIN\r\n", kRejected,
       SaslState::kFailed},
      {"other user, then the right one",
       "AUTH EXTERNAL 30\r\nAUTH EXTERNAL " + kToken + "\r\nBEGIN\r\n", kRejected + kOk,
       SaslState::kAuthenticated},
      {"user with a sign", "AUTH EXTERNAL 2b31303030\r\n", kRejected, SaslState::kNeedMore},
      {"user with a leading zero", "AUTH EXTERNAL 3031303030\r\n", kRejected, SaslState::kNeedMore},
      {"user with a blank", "AUTH EXTERNAL 3130303020\r\n", kRejected, SaslState::kNeedMore},
      {"user cut off", "AUTH EXTERNAL 313030\r\n", kRejected, SaslState::kNeedMore},
      {"user beyond 32 bits", "AUTH EXTERNAL 34323934393638323936\r\n", kRejected,
       SaslState::kNeedMore},
      {"user not in hexadecimal", "AUTH EXTERNAL 1000\r\n", kRejected, SaslState::kNeedMore},
      {"user with half a byte", "AUTH EXTERNAL 3130303\r\n", kRejected, SaslState::kNeedMore},
      {"user with digits that are none", "AUTH EXTERNAL 3130303G\r\n", kRejected,
       SaslState::kNeedMore},
      {"anonymous", "AUTH ANONYMOUS 78\r\n", kRejected, SaslState::kNeedMore},
      {"cookie", "AUTH DBUS_COOKIE_SHA1 31303030\r\n", kRejected, SaslState::kNeedMore},
      {"mechanism in lower case", "AUTH external\r\n", kRejected, SaslState::kNeedMore},
      {"begin at once", "BEGIN\r\n", "", SaslState::kFailed},
      {"begin instead of data", "AUTH EXTERNAL\r\nBEGIN\r\n", "DATA\r\n", SaslState::kFailed},
      {"cancel, then again",
       "CANCEL\r\nAUTH EXTERNAL\r\nCANCEL\r\nAUTH EXTERNAL " + kToken + "\r\nBEGIN\r\n",
       kRejected + "DATA\r\n" + kRejected + kOk, SaslState::kAuthenticated},
      {"cancel after OK", "AUTH EXTERNAL " + kToken + "\r\nCANCEL\r\nBEGIN\r\n", kOk + kRejected,
       SaslState::kFailed},
      {"error after OK, descriptors forgotten",
       "AUTH EXTERNAL " + kToken + "\r\nNEGOTIATE_UNIX_FD\r\nERROR\r\nAUTH EXTERNAL " + kToken +
           "\r\nBEGIN\r\n",
       kOk + "AGREE_UNIX_FD\r\n" + kRejected + kOk, SaslState::kAuthenticated, false},
      {"error with a text", "ERROR \"what?\"\r\n", kRejected, SaslState::kNeedMore},
      {"descriptors before OK", "NEGOTIATE_UNIX_FD\r\nAUTH EXTERNAL " + kToken + "\r\nBEGIN\r\n",
       kError + kOk, SaslState::kAuthenticated, false},
      {"data before a mechanism", "DATA\r\n", kError, SaslState::kNeedMore},
      {"second mechanism after the first", "AUTH EXTERNAL\r\nAUTH EXTERNAL\r\n",
       "DATA\r\n" + kError, SaslState::kNeedMore},
      {"mechanism after OK", "AUTH EXTERNAL " + kToken + "\r\nAUTH EXTERNAL 30\r\nBEGIN\r\n",
       kOk + kError, SaslState::kAuthenticated},
      {"unknown command", "HELLO\r\n\r\nauth\r\n EXTERNAL\r\nAUTHX\r\n",
       kError + kError + kError + kError + kError, SaslState::kNeedMore},
      {"bytes that are no text", "AUTH EXTERNAL\x80\r\nAU\0TH\r\nAUTH\tEXTERNAL\r\n"s,
       kError + kError + kError, SaslState::kNeedMore},
      {"line feed without carriage return", "AUTH EXTERNAL\nDATA\nBEGIN\n", "",
       SaslState::kNeedMore},
      {"carriage return in a line", "AUTH\rEXTERNAL\r\n", kError, SaslState::kNeedMore},
  };
  return cases;
}

TEST(SaslServer, AnswersEachConversationAsTheTableSays) {
  for (const Case& c : conversations()) {
    Conversation got = converse("\0"s + c.input);
    EXPECT_EQ(got.replies, c.replies) << c.what;
    EXPECT_EQ(got.state, c.state) << c.what;
    EXPECT_EQ(got.descriptors, c.descriptors) << c.what;
    EXPECT_EQ(got.leftOver, c.leftOver) << c.what;
    EXPECT_EQ(got.failure.empty(), c.state != SaslState::kFailed) << c.what;
  }
}

TEST(SaslServer, AnswersTheSameWhateverThePortions) {
  for (const Case& c : conversations()) {
    for (std::size_t portion = 1; portion <= c.input.size(); ++portion) {
      Conversation got = converse("\0"s + c.input, portion);
      EXPECT_EQ(got.replies, c.replies) << c.what << " by " << portion;
      EXPECT_EQ(got.state, c.state) << c.what << " by " << portion;
      EXPECT_EQ(got.leftOver, c.leftOver) << c.what << " by " << portion;
    }
  }
}

TEST(SaslServer, WantsANulFirst) {
  EXPECT_EQ(converse("AUTH EXTERNAL\r\n").state, SaslState::kFailed);
  EXPECT_EQ(converse("\0\0AUTH EXTERNAL\r\n"s).replies, kError);
}

TEST(SaslServer, KnowsRootOnlyFromTheKernel) {
  EXPECT_EQ(converse("\0AUTH EXTERNAL 30\r\nBEGIN\r\n"s, 99, 0).state, SaslState::kAuthenticated);
  EXPECT_EQ(converse("\0AUTH EXTERNAL 30\r\n"s, 99, 1000).replies, kRejected);
}

TEST(SaslServer, DoesNotAgreeToDescriptorsThatAreNotOffered) {
  Conversation got =
      converse("\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n"s, 999, kUser, false);
  EXPECT_EQ(got.replies, "DATA\r\n" + kOk + kError);
  EXPECT_EQ(got.state, SaslState::kAuthenticated);
  EXPECT_FALSE(got.descriptors);
}

TEST(SaslServer, RejectsSixteenTimes) {
  std::string attempts;
  for (int i = 0; i < 16; ++i) attempts += "AUTH\r\n";
  EXPECT_EQ(converse("\0"s + attempts + "AUTH EXTERNAL " + kToken + "\r\nBEGIN\r\n").state,
            SaslState::kAuthenticated);
  Conversation got = converse("\0"s + attempts + "AUTH\r\n");
  EXPECT_EQ(got.state, SaslState::kFailed);
  EXPECT_EQ(got.replies.size(), 16 * kRejected.size());
}

TEST(SaslServer, AnswersSixteenWrongCommands) {
  std::string commands;
  for (int i = 0; i < 16; ++i) commands += "WHAT\r\n";
  EXPECT_EQ(converse("\0"s + commands + "AUTH EXTERNAL " + kToken + "\r\nBEGIN\r\n").state,
            SaslState::kAuthenticated);
  EXPECT_EQ(converse("\0"s + commands + "WHAT\r\n").state, SaslState::kFailed);
}

TEST(SaslServer, TakesOnlySoMuch) {
  Conversation got = converse("\0"s + std::string(1 << 20, 'x'), 1000);
  EXPECT_EQ(got.state, SaslState::kFailed);
  EXPECT_EQ(got.failure, "the exchange is too long (kMaximumExchangeSize in dbus/Sasl.h)");
  EXPECT_GE(got.leftOver.size(), (1u << 20) - kMaximumExchangeSize - 1000);
  // What follows BEGIN does not count.
  Conversation good = converse("\0AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n"s + std::string(1 << 20, 'x'));
  EXPECT_EQ(good.state, SaslState::kAuthenticated);
  EXPECT_EQ(good.leftOver.size(), 1u << 20);
}

// Feeds the client what a server says.
Conversation listen(SaslClient& client, std::string_view input, std::size_t portion) {
  Conversation result;
  while (!input.empty() && result.state == SaslState::kNeedMore) {
    SaslStep step = client.receive(input.substr(0, portion));
    result.state = step.state;
    EXPECT_EQ(step.reply, "");
    input.remove_prefix(step.consumed);
  }
  result.leftOver = input;
  result.failure = client.failure();
  return result;
}

TEST(SaslClient, AndServerAgreeInOneRound) {
  for (bool wanted : {false, true}) {
    for (bool offered : {false, true}) {
      for (std::size_t portion = 1; portion < 80; ++portion) {
        SaslClient client(wanted);
        Conversation server =
            converse(std::string(client.exchange()) + "message", portion, kUser, offered);
        EXPECT_EQ(server.state, SaslState::kAuthenticated);
        EXPECT_EQ(server.leftOver, "message");
        EXPECT_EQ(server.descriptors, wanted && offered);
        Conversation answer = listen(client, server.replies + "answer", portion);
        EXPECT_EQ(answer.state, SaslState::kAuthenticated) << answer.failure;
        EXPECT_EQ(answer.leftOver, "answer");
        EXPECT_EQ(client.fileDescriptorsNegotiated(), wanted && offered);
        EXPECT_EQ(client.serverGuid(), kGuid);
      }
    }
  }
}

TEST(SaslClient, RefusesAServerThatSaysSomethingElse) {
  for (const std::string& answer : {
           "REJECTED EXTERNAL\r\n"s,
           "DATA\r\nREJECTED\r\n"s,
           "DATA 00\r\n"s,
           kOk,
           "ERROR\r\n"s,
           "DATA\r\nOK\r\n"s,
           "DATA\r\nOK 123\r\n"s,
           "DATA\r\nOK " + kGuid + "0\r\n",
           "DATA\r\nERROR\r\n"s,
           "DATA\r\n" + kOk + "BEGIN\r\n",
           "DATA\r\n" + kOk + "REJECTED\r\n",
           "l\1\0\1\r\n"s,
           std::string(kMaximumExchangeSize, 'x'),
       }) {
    SaslClient client;
    Conversation got = listen(client, answer, 7);
    EXPECT_EQ(got.state, SaslState::kFailed) << answer;
    EXPECT_FALSE(got.failure.empty());
    EXPECT_FALSE(client.fileDescriptorsNegotiated());
  }
}

}  // namespace
}  // namespace hoist::dbus
