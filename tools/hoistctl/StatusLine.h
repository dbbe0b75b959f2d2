// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>

namespace hoist::ctl {

// How a command stands, shown on the standard error: one line that is written over again on a
// terminal, elsewhere a line whenever the state is another one. One thread at a time.
class StatusLine {
 public:
  // Silent: nothing is shown at all.
  explicit StatusLine(bool silent);
  // Removes what is shown.
  ~StatusLine();
  StatusLine(const StatusLine&) = delete;
  StatusLine& operator=(const StatusLine&) = delete;

  // The text is the command's own.
  void show(const std::string& state, const std::string& text);
  void clear();

 private:
  const bool silent_;
  const bool terminal_;
  const std::chrono::steady_clock::time_point start_;
  unsigned shown_ = 0;
  std::string lastState_;
};

}  // namespace hoist::ctl
