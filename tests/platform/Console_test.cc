// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Console.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "platform/FileDescriptor.h"
#include "support/Journal.h"
#include "support/TimeZone.h"

namespace hoist {
namespace {

using testing::MatchesRegex;

std::string written(std::string_view text) {
  Pipe pipe;
  Console(Console::Destination::Descriptor, pipe.writingEnd()).write(LOG_INFO, text);
  return pipe.contents();
}

TEST(Console, AddsDateProgramAndProcess) {
  TimeZone zone("CET-1");
  TestClock clock(Date(1709644029, 123'456'789));
  EXPECT_EQ(written("(Warning) volume is full"), "2024-03-05 14:07:09.123 +0100 platform_test[" +
                                                     std::to_string(::getpid()) +
                                                     "] (Warning) volume is full\n");
}

TEST(Console, TextIsNoFormat) {
  EXPECT_THAT(written("100 %s %n %@"), testing::EndsWith("] 100 %s %n %@\n"));
}

TEST(Console, LinesOfATextCannotPoseAsEntries) {
  EXPECT_THAT(written("one\ntwo\n"), testing::EndsWith("] one\n\ttwo\n\t\n"));
  EXPECT_THAT(written(""), testing::EndsWith("] \n"));
}

TEST(Console, ControlCharactersCannotSteerATerminal) {
  EXPECT_THAT(written(std::string_view("\x1b[2Ja\rb\tc\x7f\0d \u00e9", 15)),
              testing::EndsWith("] \\033[2Ja\\015b\tc\\177\\000d \u00e9\n"));
}

TEST(Console, ControlCharactersBeyondASCIICannotEither) {
  EXPECT_THAT(written("\u009b2Ja\u0080\u009fb\u00a0\u00c2"),
              testing::EndsWith("] \\302\\2332Ja\\302\\200\\302\\237b\u00a0\u00c2\n"));
  // Not the end of another character, and not what is no character.
  EXPECT_THAT(written("\u00db \xc2 \xc2"), testing::EndsWith("] \u00db \xc2 \xc2\n"));
}

TEST(Console, LongEntryArrivesWhole) {
  std::string text(10'000'000, 'x');
  Pipe pipe;
  FileDescriptor writing(::fcntl(pipe.writingEnd(), F_DUPFD_CLOEXEC, 0));
  std::string contents;
  {
    std::jthread reader([&] { contents = pipe.contents(); });
    Console(Console::Destination::Descriptor, writing.get()).write(LOG_INFO, text);
    writing.reset();
  }
  EXPECT_TRUE(contents.ends_with("] " + text + "\n")) << contents.size();
}

TEST(Console, EntriesOfManyThreadsDoNotMix) {
  constexpr int kThreads = 4;
  constexpr int kEntries = 100;
  Pipe pipe;
  Console console(Console::Destination::Descriptor, pipe.writingEnd());
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&, thread] {
        std::string text(50 + static_cast<std::size_t>(thread), static_cast<char>('a' + thread));
        for (int entry = 0; entry < kEntries; ++entry) console.write(LOG_INFO, text);
      });
    }
  }
  std::istringstream lines(pipe.contents());
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_THAT(line, MatchesRegex("[^]]*\\] (a{50}|b{51}|c{52}|d{53})"));
  }
  EXPECT_EQ(count, kThreads * kEntries);
}

TEST(Console, EntryThatCannotBeWrittenIsLost) {
  Console(Console::Destination::Descriptor, -1).write(LOG_INFO, "nowhere");
  FileDescriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  Console(Console::Destination::Descriptor, full.get()).write(LOG_INFO, "nowhere");
}

TEST(Console, IsTheJournalWhenTheDescriptorIsItsStream) {
  Pipe pipe;
  struct stat status;
  ASSERT_EQ(::fstat(pipe.writingEnd(), &status), 0);
  auto destination = [&](const std::string& stream) {
    return Console::destinationOf(pipe.writingEnd(), stream.c_str());
  };
  auto stream = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
  EXPECT_EQ(destination(stream), Console::Destination::Journal);
  for (auto other : {stream + "1", "1" + stream, std::string("x:y"), std::string(), stream + "x",
                     std::to_string(status.st_dev)}) {
    EXPECT_EQ(destination(other), Console::Destination::Descriptor) << other;
  }
  EXPECT_EQ(Console::destinationOf(pipe.writingEnd(), nullptr), Console::Destination::Descriptor);
  EXPECT_EQ(Console::destinationOf(-1, stream.c_str()), Console::Destination::Descriptor);
}

// ---- The journal's own socket ----

TEST(ConsoleJournal, EntryIsSentWithItsFields) {
  auto received = receivedByJournal([](int standardError, FileDescriptor&) {
    ConsoleField fields[] = {{"TEST_LINE", "7.1.2"}, {"TEST_CLASS", "Warning"}};
    Console(Console::Destination::Journal, standardError)
        .write(LOG_WARNING, "(Warning) volume is full", fields);
  });
  if (!received) GTEST_SKIP() << "no mount namespace can be made here";
  EXPECT_THAT(*received, testing::HasSubstr("MESSAGE=(Warning) volume is full\nPRIORITY=4\n"
                                            "TEST_LINE=7.1.2\nTEST_CLASS=Warning\n"));
  EXPECT_THAT(*received, testing::Not(testing::HasSubstr("CODE_FILE")));
}

TEST(ConsoleJournal, TextOfSeveralLinesStaysOneField) {
  auto received = receivedByJournal([](int standardError, FileDescriptor&) {
    Console(Console::Destination::Journal, standardError).write(LOG_INFO, "a\nPRIORITY=0");
  });
  if (!received) GTEST_SKIP() << "no mount namespace can be made here";
  // Name, line feed, length in 8 bytes, text: the journal's form for texts with line feeds.
  std::string field("MESSAGE\n\x0c\0\0\0\0\0\0\0a\nPRIORITY=0\n", 8 + 8 + 13);
  EXPECT_THAT(*received, testing::HasSubstr(field));
  EXPECT_THAT(*received, testing::HasSubstr("\nPRIORITY=6\n"));
}

TEST(ConsoleJournal, EntryThatItRefusesGoesToTheDescriptor) {
  auto received = receivedByJournal([](int standardError, FileDescriptor& socket) {
    socket.reset();  // its name stays: connections are refused
    Console(Console::Destination::Journal, standardError).write(LOG_INFO, "refused");
  });
  if (!received) GTEST_SKIP() << "no mount namespace can be made here";
  EXPECT_THAT(*received, testing::EndsWith("] refused\n"));
}

}  // namespace
}  // namespace hoist
