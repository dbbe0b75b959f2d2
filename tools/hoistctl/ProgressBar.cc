// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/ProgressBar.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

#include "hoistctl/Output.h"

namespace hoist::ctl {
namespace {

// Back to the line's beginning, and away with what stands there (ECMA-48: carriage return, erase in
// line).
constexpr const char* kEraseLine = "\r\033[K";

}  // namespace

std::string progressText(double elapsed, double whole, unsigned width) {
  const double part = std::clamp(elapsed / whole, 0.0, 1.0);
  const auto full = static_cast<unsigned>(part * width);
  return fmt::format("[{:#<{}}{:{}}] {:.1f} s of {:.1f} s", "", full, "", width - full,
                     std::min(elapsed, whole), whole);
}

ProgressBar::ProgressBar(bool hidden) : isShown_(!hidden && ::isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
  show({});
}

void ProgressBar::show(const std::string& text) {
  if (!isShown_) return;
  printToError(fmt::format("{}{}", kEraseLine, fitting(text)));
}

}  // namespace hoist::ctl
