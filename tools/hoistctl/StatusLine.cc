// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/StatusLine.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>

#include "hoistctl/Output.h"

namespace hoist::ctl {
namespace {

constexpr std::array kSpinner{"⠋", "⠙", "⠹", "⠸", "⠼", "⠴", "⠦", "⠧", "⠇", "⠏"};
// To the first column; erases the rest of the line.
constexpr const char* kStartOver = "\r\033[K";

}  // namespace

StatusLine::StatusLine(bool silent)
    : silent_(silent),
      terminal_(::isatty(STDERR_FILENO) == 1),
      start_(std::chrono::steady_clock::now()) {}

StatusLine::~StatusLine() {
  clear();
}

void StatusLine::show(const std::string& state, const std::string& text) {
  if (silent_) return;
  if (!terminal_) {
    if (state != lastState_) printToError(state + "\n");
    lastState_ = state;
    return;
  }
  auto seconds =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start_)
          .count();
  std::string line =
      fmt::format(" {:<10} {:02}:{:02}  {}", state, seconds / 60, seconds % 60, shown(text));
  printToError(
      fmt::format("{}{}{}", kStartOver, kSpinner[shown_++ % kSpinner.size()], fitting(line, 1)));
}

void StatusLine::clear() {
  if (!terminal_ || shown_ == 0) return;
  printToError(kStartOver);
  shown_ = 0;
}

}  // namespace hoist::ctl
