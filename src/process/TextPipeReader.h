// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/ConditionLock.h"
#include "platform/FileDescriptor.h"
#include "values/Ref.h"

namespace hoist {

// Collects what a child process writes into a pipe and makes it a list of the lines that are not
// blank. Give pipe().writing to the child as its standard output, launch it, call startReading(),
// and ask for lines(), which waits until nobody can write any more. A reader is used once.
//
// Everything but lines() belongs to the thread that starts the reading; lines() is safe from any
// thread after that.
class TextPipeReader : public std::enable_shared_from_this<TextPipeReader> {
 public:
  using Lines = std::vector<std::string>;

  // Made at the first call and kept.
  PipeEnds& pipe();
  // Closes this process's writing end (the child has its own by now) and begins to read, on a
  // global queue. The reader lives until that has ended.
  void startReading();
  // The lines, as UTF-8, without their ends; empty if the output could not be decoded. Waits
  // without a limit. Before startReading() null, at once.
  Ref<const Lines> lines() const;

  // Encoding of the output, by the numbers of TextEncoding; 0 is UTF-8.
  std::uint32_t encoding() const { return encoding_; }
  void setEncoding(std::uint32_t encoding) { encoding_ = encoding; }
  // Once that many bytes have been taken, all further output is read and thrown away; 0 is no
  // limit. A chunk is taken whole, so that what is kept may be longer than the limit by almost one.
  std::size_t limit() const { return limit_; }
  void setLimit(std::size_t limit) { limit_ = limit; }

 private:
  void read() noexcept;
  std::string readToEnd() const;

  std::optional<PipeEnds> pipe_;
  // Condition 0: reading; 1: the lines are there.
  Ref<ConditionLock> lock_;
  Ref<const Lines> output_;
  std::uint32_t encoding_ = 0;
  std::size_t limit_ = 0;
};

}  // namespace hoist
