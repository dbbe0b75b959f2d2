// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Where the program's lines become visible. Under the service manager standard error is a stream to
// the journal; then entries are sent to the journal's own socket instead, because the stream would
// cut a text at its line feeds and knows no fields. Everywhere else an entry is one line that
// begins with date, program and process; it goes out in a single write, so that lines of several
// threads and processes cannot mix. Line feeds in the text are followed by a tab there, and control
// characters are written in octal: a text that a client chose can neither pose as an entry of its
// own nor steer the terminal of whoever reads the log.

#include "platform/Console.h"

// The journal would otherwise record this file as the origin of every entry.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <sys/stat.h>
#include <sys/uio.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/Clock.h"

namespace hoist {
namespace {

constexpr std::size_t kDateLength = 32;

iovec bytesOf(const std::string& text) {
  return {const_cast<char*>(text.data()), text.size()};
}

std::string assignment(std::string_view name, std::string_view value) {
  std::string text;
  text.reserve(name.size() + 1 + value.size());
  return text.append(name).append("=").append(value);
}

// Of UTF-8, before the last byte of U+0080 to U+00BF. The first half are control characters again,
// which terminals obey like those of ASCII.
constexpr unsigned char kLeadOfControl = 0xC2;

bool isPlain(unsigned char byte) {
  return byte >= ' ' && byte != 0x7F && byte != kLeadOfControl;
}

// Of the character at the beginning of the text, which has a byte that is not plain there; 0 when
// it is no control character.
std::size_t lengthOfControl(std::string_view text) {
  if (static_cast<unsigned char>(text[0]) != kLeadOfControl) return 1;
  bool isControl = text.size() > 1 && (static_cast<unsigned char>(text[1]) & 0xE0) == 0x80;
  return isControl ? 2 : 0;
}

void appendInOctal(std::string& entry, unsigned char byte) {
  const char octal[] = {'\\', static_cast<char>('0' + (byte >> 6)),
                        static_cast<char>('0' + (byte >> 3 & 7)),
                        static_cast<char>('0' + (byte & 7))};
  entry.append(octal, sizeof octal);
}

void appendAsOneEntry(std::string& entry, std::string_view text) {
  for (;;) {
    auto stop = std::find_if_not(text.begin(), text.end(), isPlain);
    entry.append(text.begin(), stop);
    text.remove_prefix(static_cast<std::size_t>(stop - text.begin()));
    if (text.empty()) break;
    const std::size_t control = lengthOfControl(text);
    if (text[0] == '\n') {
      entry += "\n\t";
    } else if (text[0] == '\t' || control == 0) {
      entry += text[0];
    } else {
      for (char byte : text.substr(0, control)) {
        appendInOctal(entry, static_cast<unsigned char>(byte));
      }
    }
    text.remove_prefix(std::max<std::size_t>(control, 1));
  }
  entry += '\n';
}

}  // namespace

Console& Console::shared() {
  static auto& console =
      *new Console(destinationOf(STDERR_FILENO, std::getenv("JOURNAL_STREAM")), STDERR_FILENO);
  return console;
}

Console::Console(Destination destination, int descriptor)
    : destination_(destination),
      descriptor_(descriptor),
      origin_(std::string(" ") + program_invocation_short_name + "[" + std::to_string(::getpid()) +
              "] "),
      dateFormatter_("yyyy-MM-dd HH:mm:ss.SSS Z") {}

Console::Destination Console::destinationOf(int descriptor, const char* journalStream) {
  struct stat status;
  bool journal =
      journalStream && ::fstat(descriptor, &status) == 0 &&
      journalStream == std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
  return journal ? Destination::Journal : Destination::Descriptor;
}

void Console::write(int priority, std::string_view text, std::span<const ConsoleField> fields) {
  if (destination_ == Destination::Journal && writeToJournal(priority, text, fields)) return;
  writeToDescriptor(text);
}

bool Console::writeToJournal(int priority, std::string_view text,
                             std::span<const ConsoleField> fields) {
  std::vector<std::string> assignments;
  assignments.reserve(fields.size() + 2);
  assignments.push_back(assignment("MESSAGE", text));
  assignments.push_back(assignment("PRIORITY", std::to_string(priority)));
  for (const auto& field : fields) assignments.push_back(assignment(field.name, field.value));
  std::vector<iovec> pieces;
  pieces.reserve(assignments.size());
  for (const auto& text : assignments) pieces.push_back(bytesOf(text));
  return sd_journal_sendv(pieces.data(), static_cast<int>(pieces.size())) == 0;
}

void Console::writeToDescriptor(std::string_view text) {
  std::string entry;
  entry.reserve(text.size() + kDateLength + origin_.size());
  dateFormatter_.appendDate(Clock::now(), entry);
  entry += origin_;
  appendAsOneEntry(entry, text);
  std::string_view rest = entry;
  while (!rest.empty()) {
    ssize_t written = ::write(descriptor_, rest.data(), rest.size());
    if (written > 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      return;
    }
  }
}

}  // namespace hoist
