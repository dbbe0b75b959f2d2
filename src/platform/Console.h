// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/DateFormatter.h"

namespace hoist {

// One more fact about a console entry. Only the journal keeps it.
struct ConsoleField {
  // Upper-case letters, digits and underscores, a letter first.
  std::string_view name;
  std::string_view value;
};

// The system's console log, which adds its own time stamp: the journal when the program's standard
// error is connected to it, else standard error. Each entry arrives there whole and uninterrupted.
// Safe to use from any thread; nothing is thrown, an entry that cannot be written is lost.
class Console {
 public:
  // The program's own: chosen once, at the first use.
  static Console& shared();

  enum class Destination { Descriptor, Journal };
  // The descriptor is borrowed. It is also where an entry goes that the journal refuses.
  Console(Destination destination, int descriptor);

  // The priority is one of syslog's, LOG_EMERG to LOG_DEBUG.
  void write(int priority, std::string_view text, std::span<const ConsoleField> fields = {});

  Destination destination() const { return destination_; }

  // The journal when the descriptor is the stream that the service manager names in JOURNAL_STREAM
  // as "DEVICE:INODE".
  static Destination destinationOf(int descriptor, const char* journalStream);

 private:
  bool writeToJournal(int priority, std::string_view text, std::span<const ConsoleField> fields);
  void writeToDescriptor(std::string_view text);

  const Destination destination_;
  const int descriptor_;
  // " PROGRAM[PROCESS] "
  const std::string origin_;
  const DateFormatter dateFormatter_;
};

}  // namespace hoist
