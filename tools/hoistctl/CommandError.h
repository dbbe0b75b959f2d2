// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

namespace hoist::ctl {

// What went wrong, as an exit status: the hoist refused; the command line makes no sense; hoist or
// helper cannot be reached; the helper's command ended with an exception.
enum class Failure { Refused = 1, Usage = 2, Unreachable = 3, Failed = 4 };

// Ends the program.
class CommandError : public std::runtime_error {
 public:
  CommandError(Failure kind, const std::string& message)
      : std::runtime_error(message), kind_(kind) {}
  Failure kind() const { return kind_; }

 private:
  Failure kind_;
};

// Ends the program; what went wrong has been printed already.
class Reported : public std::exception {
 public:
  explicit Reported(Failure kind) : kind_(kind) {}
  Failure kind() const { return kind_; }

 private:
  Failure kind_;
};

}  // namespace hoist::ctl
