// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace hoist::ctl {

// "[##########          ] 5.0 s of 10.0 s": as many blanks and signs as the width; never more than
// full.
std::string progressText(double elapsed, double whole, unsigned width = 30);

// A line on the standard error, written over again and again; nothing at all where that is no
// terminal. Belongs to one thread.
class ProgressBar {
 public:
  // Hidden: as if there were no terminal.
  explicit ProgressBar(bool hidden);
  // Takes the line away.
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void show(const std::string& text);

 private:
  const bool isShown_;
};

}  // namespace hoist::ctl
