// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "connection/KLConnection.h"
#include "hoistctl/Setting.h"
#include "hoistctl/StatusLine.h"
#include "platform/FileDescriptor.h"
#include "values/Data.h"

namespace hoist::ctl {

// The signals by which a person ends a program. While one of these lives they are read from a
// descriptor instead; made before the program's first other thread, which inherits that.
class EndingSignals {
 public:
  EndingSignals();
  ~EndingSignals();
  EndingSignals(const EndingSignals&) = delete;
  EndingSignals& operator=(const EndingSignals&) = delete;

  // Readable when one has come.
  int descriptor() const { return descriptor_.get(); }
  // Takes the one that has come; 0 when there is none.
  int take();

 private:
  FileDescriptor descriptor_;
};

// Drives the command of a launched helper from its properties to its end. The first ending signal
// cancels the command, and its end is waited for; the second one leaves it running. Belongs to one
// thread.
class CommandRun {
 public:
  // All borrowed.
  CommandRun(KLConnection& helper, EndingSignals& signals, StatusLine& status)
      : helper_(helper), signals_(signals), status_(status) {}

  // Throws CommandError (Refused) for a property that the command does not support.
  void set(const std::vector<Setting>& settings);
  // Answers the exception with which the command ended, in its transport form; nothing when it
  // ended well. Throws CommandError when the helper is lost or was left running.
  std::optional<Data> run();

 private:
  struct Result;

  void handleSignal();
  void showState();

  KLConnection& helper_;
  EndingSignals& signals_;
  StatusLine& status_;
  bool cancelled_ = false;
};

}  // namespace hoist::ctl
