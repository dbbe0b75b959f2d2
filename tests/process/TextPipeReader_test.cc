// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "process/TextPipeReader.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "platform/ChildTask.h"
#include "platform/TextEncoding.h"
#include "support/TroubleRecorder.h"

namespace hoist {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pointee;
using namespace std::string_literals;

constexpr std::uint32_t number(TextEncoding encoding) {
  return static_cast<std::uint32_t>(encoding);
}

// A child that writes into a reader's pipe.
struct Writer {
  explicit Writer(const std::string& script) {
    task = ChildTask::launch({.launchPath = "/bin/sh",
                              .arguments = {"-c", script},
                              .standardOutput = reader->pipe().writing.get()});
  }
  ~Writer() {
    task->kill();
    task->waitUntilExit();
  }

  Ref<TextPipeReader> reader = make<TextPipeReader>();
  Ref<ChildTask> task;
};

Ref<const TextPipeReader::Lines> linesOf(const std::string& output, std::uint32_t encoding = 0) {
  auto reader = make<TextPipeReader>();
  reader->setEncoding(encoding);
  const auto size = static_cast<ssize_t>(output.size());
  EXPECT_EQ(::write(reader->pipe().writing.get(), output.data(), output.size()), size);
  reader->startReading();
  return reader->lines();
}

TEST(TextPipeReader, MakesLinesOfWhatAChildWrites) {
  Writer writer("echo one; echo two");
  writer.reader->startReading();
  EXPECT_THAT(writer.reader->lines(), Pointee(ElementsAre("one", "two")));
  // Asked again, it answers the same.
  EXPECT_THAT(writer.reader->lines(), Pointee(ElementsAre("one", "two")));
}

TEST(TextPipeReader, LeavesBlankLinesOut) {
  EXPECT_THAT(linesOf("a\n\n  \nb\n"), Pointee(ElementsAre("a", "b")));
  EXPECT_THAT(linesOf("\t\n \t \na"), Pointee(ElementsAre("a")));
  EXPECT_THAT(linesOf("a\r\nb\r\n"), Pointee(ElementsAre("a", "b")));
}

TEST(TextPipeReader, KeepsTheBlanksOfOtherLines) {
  EXPECT_THAT(linesOf(" x \n\ty\n"), Pointee(ElementsAre(" x ", "\ty")));
  // No-break space is no blank here.
  EXPECT_THAT(linesOf("\u00A0\n"), Pointee(ElementsAre("\u00A0")));
}

TEST(TextPipeReader, EndsALineAtEveryNewlineCharacter) {
  EXPECT_THAT(linesOf("a\nb\vc\fd\re\u0085f\u2028g\u2029h"),
              Pointee(ElementsAre("a", "b", "c", "d", "e", "f", "g", "h")));
  // Others that begin with the same byte are no newlines.
  EXPECT_THAT(linesOf("a\u00A9b\u2026c"), Pointee(ElementsAre("a\u00A9b\u2026c")));
}

TEST(TextPipeReader, HasNoLinesOfNoOutput) {
  EXPECT_THAT(linesOf(""), Pointee(IsEmpty()));
  Writer writer("exit 3");
  writer.reader->startReading();
  EXPECT_THAT(writer.reader->lines(), Pointee(IsEmpty()));
}

TEST(TextPipeReader, HasNoLinesOfHalfACharacterAtTheEnd) {
  Writer writer(R"(printf 'whole\nhalf \303')");
  writer.reader->startReading();
  EXPECT_THAT(writer.reader->lines(), Pointee(IsEmpty()));
}

TEST(TextPipeReader, DecodesOtherEncodings) {
  EXPECT_THAT(linesOf("gr\xFC\xDF\n", number(TextEncoding::ISOLatin1)),
              Pointee(ElementsAre("grüß")));
  EXPECT_THAT(linesOf("\x93\xFA\n\x96\x7B\n", number(TextEncoding::ShiftJIS)),
              Pointee(ElementsAre("日", "本")));
  // The line feed is a character of two bytes there, and U+0A0A is none.
  EXPECT_THAT(linesOf("a\0\n\0\x0A\x0A"s, number(TextEncoding::UTF16LittleEndian)),
              Pointee(ElementsAre("a", "\u0A0A")));
  EXPECT_THAT(linesOf("gr\xFC\xDF\n", number(TextEncoding::ASCII)), Pointee(IsEmpty()));
  EXPECT_THAT(linesOf("text\n", 4711), Pointee(IsEmpty()));
}

TEST(TextPipeReader, AnswersNothingBeforeItReads) {
  auto reader = make<TextPipeReader>();
  EXPECT_EQ(reader->lines(), nullptr);
  EXPECT_TRUE(reader->pipe().writing);
  EXPECT_EQ(&reader->pipe(), &reader->pipe());
  EXPECT_EQ(reader->lines(), nullptr);
}

// Until everything that was written has been read.
void waitUntilTaken(TextPipeReader& reader) {
  for (int waiting = 1; waiting > 0; std::this_thread::yield()) {
    ASSERT_EQ(::ioctl(reader.pipe().reading.get(), FIONREAD, &waiting), 0);
  }
}

// Writes chunk after chunk, each when the one before has been read.
std::size_t keptOf(const std::vector<std::string>& chunks, std::size_t limit) {
  auto reader = make<TextPipeReader>();
  reader->setLimit(limit);
  FileDescriptor writing = std::move(reader->pipe().writing);
  reader->startReading();
  for (const std::string& chunk : chunks) {
    EXPECT_EQ(::write(writing.get(), chunk.data(), chunk.size()),
              static_cast<ssize_t>(chunk.size()));
    waitUntilTaken(*reader);
  }
  writing.reset();
  const auto lines = reader->lines();
  return lines && !lines->empty() ? lines->front().size() : 0;
}

TEST(TextPipeReader, TakesWholeChunksUpToTheLimit) {
  const std::vector<std::string> chunks(4, "eight by");
  EXPECT_EQ(keptOf(chunks, 10), 16u);
  EXPECT_EQ(keptOf(chunks, 8), 8u);
  EXPECT_EQ(keptOf(chunks, 9), 16u);
  EXPECT_EQ(keptOf(chunks, 1), 8u);
  EXPECT_EQ(keptOf(chunks, 0), 32u);
  EXPECT_EQ(keptOf(chunks, 1000), 32u);
}

TEST(TextPipeReader, ReadsAGigabyteToItsEnd) {
  Writer writer("head -c 1073741824 /dev/zero");
  writer.reader->setLimit(1000);
  writer.reader->startReading();
  const auto lines = writer.reader->lines();
  ASSERT_EQ(lines->size(), 1u);
  EXPECT_GE(lines->front().size(), 1000u);
  EXPECT_LT(lines->front().size(), 1000u + 64 * 1024);
  // The child was not cut off.
  writer.task->waitUntilExit();
  EXPECT_EQ(writer.task->terminationStatus(), 0);
}

TEST(TextPipeReader, KeepsALotWithoutALimit) {
  constexpr std::size_t kLines = 1'000'000;
  Writer writer("yes 'a line of the output' | head -n " + std::to_string(kLines));
  writer.reader->startReading();
  EXPECT_EQ(writer.reader->lines()->size(), kLines);
  EXPECT_EQ(writer.reader->lines()->back(), "a line of the output");
}

TEST(TextPipeReader, WaitsUntilNobodyCanWriteAnyMore) {
  Writer writer("echo said");
  // As if something that the child has started outlived it.
  FileDescriptor open = FileDescriptor::duplicate(writer.reader->pipe().writing.get());
  writer.reader->startReading();
  writer.task->waitUntilExit();
  auto lines = std::async(std::launch::async, [&] { return writer.reader->lines(); });
  waitUntilTaken(*writer.reader);
  EXPECT_EQ(lines.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  open.reset();
  EXPECT_THAT(lines.get(), Pointee(ElementsAre("said")));
}

TEST(TextPipeReader, HasNoLinesOfWhatCannotBeRead) {
  TroubleRecorder trouble;
  auto reader = make<TextPipeReader>();
  reader->pipe().reading = FileDescriptor(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  reader->startReading();
  EXPECT_THAT(reader->lines(), Pointee(IsEmpty()));
  EXPECT_THAT(trouble.messages(), ElementsAre(HasSubstr("Is a directory")));
}

TEST(TextPipeReader, LivesUntilItHasRead) {
  auto reader = make<TextPipeReader>();
  FileDescriptor writing = std::move(reader->pipe().writing);
  reader->startReading();
  std::weak_ptr<TextPipeReader> watched = reader;
  reader.reset();
  EXPECT_FALSE(watched.expired());
  writing.reset();
  while (!watched.expired()) std::this_thread::yield();
}

}  // namespace
}  // namespace hoist
