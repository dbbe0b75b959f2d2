// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// What a chunk is, is up to the kernel: whatever one read gives. A full pipe gives 64 KiB at once.
#include "process/TextPipeReader.h"

#include <unistd.h>

#include <algorithm>

#include "platform/CharacterSets.h"
#include "platform/Dispatch.h"
#include "platform/SystemCall.h"
#include "platform/TextEncoding.h"
#include "platform/Trouble.h"
#include "platform/Utf8.h"

namespace hoist {
namespace {

// Conditions of the lock.
constexpr int kReading = 0;
constexpr int kLinesReady = 1;

constexpr std::size_t kInitialCapacity = 1024;
// Of a pipe (pipe(7)): no read gives more.
constexpr std::size_t kLongestChunk = 64 * 1024;

// Whether a newline character can begin with that byte, in UTF-8.
constexpr bool mayBeginNewline(char c) {
  return (c >= '\n' && c <= '\r') || c == '\xC2' || c == '\xE2';
}

// How many bytes the newline character at the beginning of the text has; 0 when there is none.
std::size_t newlineLength(std::string_view text) {
  std::string_view rest = text;
  return isNewline(takeCharacter(rest)) ? text.size() - rest.size() : 0;
}

bool isBlank(std::string_view line) {
  return line.find_first_not_of(" \t") == std::string_view::npos;
}

TextPipeReader::Lines linesOf(std::string_view text) {
  TextPipeReader::Lines lines;
  auto take = [&lines](std::string_view line) {
    if (!isBlank(line)) lines.emplace_back(line);
  };
  for (auto at = text.begin();;) {
    at = std::find_if(at, text.end(), mayBeginNewline);
    if (at == text.end()) break;
    const auto before = static_cast<std::size_t>(at - text.begin());
    const std::size_t length = newlineLength(text.substr(before));
    if (length == 0) {
      ++at;  // another character with that first byte
      continue;
    }
    take(text.substr(0, before));
    text.remove_prefix(before + length);
    at = text.begin();
  }
  take(text);
  return lines;
}

}  // namespace

PipeEnds& TextPipeReader::pipe() {
  if (!pipe_) pipe_ = makePipe();
  return *pipe_;
}

void TextPipeReader::startReading() {
  pipe().writing.reset();
  lock_ = make<ConditionLock>(kReading);
  dispatch::globalQueue().async([self = shared_from_this()] { self->read(); });
}

Ref<const TextPipeReader::Lines> TextPipeReader::lines() const {
  if (!lock_) return nullptr;
  lock_->sleepUntilCondition(kLinesReady);
  return output_;
}

// Whoever waits for the lines is let go whatever happens.
void TextPipeReader::read() noexcept {
  output_ = make<const Lines>();
  platform::contain("the reading of a child's output", [this] {
    const auto encoding = encoding_ == 0 ? TextEncoding::UTF8 : TextEncoding{encoding_};
    if (auto text = decodeText(readToEnd(), encoding)) output_ = make<const Lines>(linesOf(*text));
  });
  lock_->transitionToCondition(kLinesReady);
}

std::string TextPipeReader::readToEnd() const {
  std::string text;
  text.reserve(kInitialCapacity);
  std::vector<char> chunk(kLongestChunk);
  for (;;) {
    const ssize_t length = systemCall(
        "read", [&] { return ::read(pipe_->reading.get(), chunk.data(), chunk.size()); });
    if (length == 0) return text;
    if (limit_ == 0 || text.size() < limit_) {
      text.append(chunk.data(), static_cast<std::size_t>(length));
    }
  }
}

}  // namespace hoist
