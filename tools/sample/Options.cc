// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// The options are long names behind a single dash, which is what getopt_long_only is for.
// Positional numbers after the process are taken as duration and interval, in that order.
#include "sample/Options.h"

#include <fmt/format.h>
#include <getopt.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace hoist::sample {
namespace {

// Picked: an hour of samples is more than a person reads, ten a second say nothing.
constexpr double kShortestSeconds = 0.01;
constexpr double kLongestSeconds = 3600;
constexpr double kShortestMilliseconds = 0.1;
constexpr double kLongestMilliseconds = 10'000;

constexpr option kLongOptions[] = {
    {"file", required_argument, nullptr, 'f'},     {"flamegraph", required_argument, nullptr, 'g'},
    {"duration", required_argument, nullptr, 'd'}, {"interval", required_argument, nullptr, 'i'},
    {"help", no_argument, nullptr, 'h'},           {nullptr, 0, nullptr, 0}};

pid_t processID(const char* text) {
  // Digits only: strtol alone would take blanks and signs.
  std::size_t length = std::strlen(text);
  long number = 0;
  if (length > 0 && length <= 10 && std::strspn(text, "0123456789") == length) {
    number = std::strtol(text, nullptr, 10);
  }
  if (number <= 0 || number > INT_MAX) {
    throw UsageError(fmt::format("\"{}\" is not a process identifier", text));
  }
  return static_cast<pid_t>(number);
}

double numberWithin(const char* text, const char* what, double least, double most) {
  char* end = nullptr;
  double number = std::strtod(text, &end);
  if (end == text || *end != '\0' || !(number >= least && number <= most)) {
    throw UsageError(fmt::format("the {} must be a number from {} to {}", what, least, most));
  }
  return number;
}

void setDuration(Options& options, const char* text) {
  double seconds = numberWithin(text, "duration in seconds", kShortestSeconds, kLongestSeconds);
  options.duration = std::chrono::milliseconds(std::llround(seconds * 1000));
}

void setInterval(Options& options, const char* text) {
  double milliseconds =
      numberWithin(text, "interval in milliseconds", kShortestMilliseconds, kLongestMilliseconds);
  options.interval = std::chrono::microseconds(std::llround(milliseconds * 1000));
}

std::string path(const char* text) {
  if (*text == '\0') throw UsageError("the name of the file to write is empty");
  return text;
}

void takePositional(Options& options, int count, char* const* arguments) {
  if (count == 0) throw UsageError("no process given");
  if (count > 3) throw UsageError(fmt::format("\"{}\" is one argument too many", arguments[3]));
  options.processID = processID(arguments[0]);
  if (count > 1) setDuration(options, arguments[1]);
  if (count > 2) setInterval(options, arguments[2]);
}

}  // namespace

const char* usageText() {
  return "usage: sample PID [-file PATH] [-duration SECONDS] [-interval MILLISECONDS] "
         "[-flamegraph FILE.svg]";
}

Options parseOptions(int count, char* const* arguments) {
  Options options;
  ::opterr = 0;
  ::optind = 0;  // GNU: start anew
  for (;;) {
    int found = ::getopt_long_only(count, arguments, ":", kLongOptions, nullptr);
    if (found == -1) break;
    switch (found) {
      case 'f':
        options.reportPath = path(::optarg);
        break;
      case 'g':
        options.flameGraphPath = path(::optarg);
        break;
      case 'd':
        setDuration(options, ::optarg);
        break;
      case 'i':
        setInterval(options, ::optarg);
        break;
      case 'h':
        throw HelpWanted();
      case ':':
        throw UsageError(fmt::format("{} needs a value", arguments[::optind - 1]));
      default:
        throw UsageError(fmt::format("\"{}\" is no option", arguments[::optind - 1]));
    }
  }
  takePositional(options, count - ::optind, arguments + ::optind);
  if (options.reportPath && options.reportPath == options.flameGraphPath) {
    throw UsageError("report and flame graph cannot be one file");
  }
  return options;
}

}  // namespace hoist::sample
