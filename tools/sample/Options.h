// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>

namespace hoist::sample {

// What the command line asks for.
struct Options {
  pid_t processID = 0;
  std::chrono::milliseconds duration{10'000};
  // Time from one sample to the next that is wished for; the sampler lengthens it when it must.
  std::chrono::microseconds interval{1'000};
  // Nothing: the report goes to standard output.
  std::optional<std::string> reportPath;
  std::optional<std::string> flameGraphPath;
};

// A command line that cannot be understood; the text is one line.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The user asked for the usage text.
class HelpWanted {};

// Throws UsageError or HelpWanted. Not to be called by two threads at once (it uses getopt).
Options parseOptions(int count, char* const* arguments);

// One line on how the tool is called.
const char* usageText();

}  // namespace hoist::sample
