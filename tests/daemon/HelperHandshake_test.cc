// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/HelperHandshake.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>

#include "platform/FileDescriptor.h"
#include "platform/xpc/Limits.h"
#include "support/ClockDriver.h"

namespace hoist {
namespace {

using Kind = HandshakeAnswer::Kind;

// The helper's side of the two pipes, played by the test on a thread of its own.
class Handshake : public testing::Test {
 public:
  Handshake() { ::signal(SIGPIPE, SIG_IGN); }

  HandshakeAnswer shake(const std::function<void(Handshake&)>& helper,
                        const std::string& lines = "lines\n") {
    std::thread thread([&] { helper(*this); });
    auto answer = shakeHands(input_.writing.get(), output_.reading.get(), lines,
                             Clock::instant() + kHandshakeLimit);
    // Whatever the helper still waits for ends now.
    input_.writing.reset();
    output_.reading.reset();
    thread.join();
    return answer;
  }

  void say(std::string_view text) {
    ASSERT_EQ(::write(output_.writing.get(), text.data(), text.size()),
              static_cast<ssize_t>(text.size()));
  }
  void end() {
    input_.reading.reset();
    output_.writing.reset();
  }
  std::string hear(std::size_t count) {
    std::string text(count, 0);
    std::size_t got = 0;
    while (got < count) {
      ssize_t piece = ::read(input_.reading.get(), text.data() + got, count - got);
      if (piece <= 0) break;
      got += static_cast<std::size_t>(piece);
    }
    text.resize(got);
    return text;
  }

  PipeEnds input_ = makePipe();
  PipeEnds output_ = makePipe();
};

TEST(HandshakeLines, AreFourEachEndedByALineFeed) {
  EXPECT_EQ(handshakeLines("helper.capture.42", "capture", {"verbose", "fast"}),
            "Helper-2.2.5.12\nhelper.capture.42\ncapture\nverbose,fast\n");
}

TEST(HandshakeLines, EndWithAnEmptyLineWithoutFlags) {
  EXPECT_EQ(handshakeLines("helper.recall.7", "recall", {}),
            "Helper-2.2.5.12\nhelper.recall.7\nrecall\n\n");
}

TEST(HandshakeLines, PassCommasInsideFlags) {
  EXPECT_EQ(handshakeLines("s", "c", {"a,b", ""}), "Helper-2.2.5.12\ns\nc\na,b,\n");
}

TEST(HandshakeLines, TakeOnlyAsciiWithoutLineFeeds) {
  EXPECT_TRUE(fitsHandshakeLine(""));
  EXPECT_TRUE(fitsHandshakeLine("capture, with blanks\t"));
  EXPECT_FALSE(fitsHandshakeLine("two\nlines"));
  EXPECT_FALSE(fitsHandshakeLine("d\xc3\xa9j\xc3\xa0"));
}

TEST_F(Handshake, IsAcceptedByThreeBytes) {
  std::string heard;
  auto answer = shake([&](Handshake& helper) {
    heard = helper.hear(6);
    helper.say("OK\n");
  });
  EXPECT_EQ(answer.kind, Kind::Accepted);
  EXPECT_EQ(heard, "lines\n");
}

// More than a pipe holds: who writes them cannot finish before somebody reads.
const std::string kLongLines(1 << 20, 'x');

TEST_F(Handshake, IsAcceptedByThreeBytesThatComeOneByOneBeforeTheLinesAreRead) {
  std::string heard;
  auto answer = shake(
      [&](Handshake& helper) {
        for (char c : std::string("OK\n")) helper.say(std::string(1, c));
        heard = helper.hear(kLongLines.size());
      },
      kLongLines);
  EXPECT_EQ(answer.kind, Kind::Accepted);
  EXPECT_EQ(heard.size(), kLongLines.size());
}

TEST_F(Handshake, IsAcceptedByAHelperThatClosesItsInput) {
  auto answer = shake(
      [](Handshake& helper) {
        helper.say("OK\n");
        helper.input_.reading.reset();
      },
      kLongLines);
  EXPECT_EQ(answer.kind, Kind::Accepted);
}

TEST_F(Handshake, IsAcceptedAfterSixtySecondsByAHelperThatNeverReadsItsLines) {
  // There before the clock runs: what is there is read, however late it is.
  say("OK\n");
  TestClock clock(Date(1'700'000'000));
  ClockDriver driver(clock);
  EXPECT_EQ(shake([](Handshake&) {}, kLongLines).kind, Kind::Accepted);
}

TEST_F(Handshake, HasNoAnswerWhenTheHelperEndsAtOnce) {
  EXPECT_EQ(shake([](Handshake& helper) { helper.end(); }).kind, Kind::None);
}

TEST_F(Handshake, HasNoAnswerWhenFewerThanThreeBytesCome) {
  auto answer = shake([](Handshake& helper) {
    helper.say("OK");
    helper.end();
  });
  EXPECT_EQ(answer.kind, Kind::None);
}

TEST_F(Handshake, HasNoAnswerAfterSixtySecondsOfSilence) {
  TestClock clock(Date(1'700'000'000));
  ClockDriver driver(clock);
  EXPECT_EQ(shake([](Handshake&) {}).kind, Kind::None);
}

TEST_F(Handshake, IsRefusedWithTheTextAfterTheThreeBytes) {
  auto answer = shake([](Handshake& helper) {
    helper.say("NO\n  not today \n");
    helper.end();
  });
  EXPECT_EQ(answer.kind, Kind::Refused);
  EXPECT_EQ(answer.response, "not today");
  EXPECT_FALSE(answer.wrongVersion);
}

TEST_F(Handshake, IsRefusedForItsVersionByTheWordAfterTheThreeBytes) {
  auto answer = shake([](Handshake& helper) {
    helper.say("NO\nBADVER Helper-1.0");
    helper.end();
  });
  EXPECT_TRUE(answer.wrongVersion);
  EXPECT_EQ(answer.response, "BADVER Helper-1.0");
}

TEST_F(Handshake, TakesTheThreeBytesOutOfTheWord) {
  auto answer = shake([](Handshake& helper) {
    helper.say("BADVER");
    helper.end();
  });
  EXPECT_EQ(answer.kind, Kind::Refused);
  EXPECT_EQ(answer.response, "VER");
  EXPECT_FALSE(answer.wrongVersion);
}

TEST_F(Handshake, CutsARefusalThatNeverEnds) {
  auto answer = shake([](Handshake& helper) {
    helper.say("NO\n");
    std::string much(4096, 'x');
    while (::write(helper.output_.writing.get(), much.data(), much.size()) > 0) continue;
  });
  EXPECT_EQ(answer.kind, Kind::Refused);
  EXPECT_EQ(answer.response, std::string(xpc::kRefusedHelperOutput, 'x'));
}

TEST_F(Handshake, CutsARefusalAfterTenSeconds) {
  // There before the clock runs: what is there is read, however late it is.
  say("NO\nwait");
  TestClock clock(Date(1'700'000'000));
  ClockDriver driver(clock);
  auto answer = shake([](Handshake&) {});
  EXPECT_EQ(answer.kind, Kind::Refused);
  EXPECT_EQ(answer.response, "wait");
}

TEST(Refusal, ShowsForeignBytesAsQuestionMarks) {
  EXPECT_EQ(refusalFrom(" \tna\xc3\xafve\r\n").response, "na??ve");
}

TEST(Refusal, IsOfAnotherVersionOnlyFromTheStartAndInFull) {
  EXPECT_TRUE(refusalFrom("\n BADVER").wrongVersion);
  EXPECT_FALSE(refusalFrom("BADVE").wrongVersion);
  EXPECT_FALSE(refusalFrom("not BADVER").wrongVersion);
}

}  // namespace
}  // namespace hoist
