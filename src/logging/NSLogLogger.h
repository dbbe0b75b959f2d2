// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "logging/Logger.h"
#include "platform/Console.h"

namespace hoist {

// The logger that writes to the system console: "(CLASS) MESSAGE", the bare message for plain ones.
// Lines of the classes Subrosa and Debug are not written. Lines carry neither date nor identifier:
// the console adds its own time stamp, and the journal keeps the identifier in a field of its own.
class NSLogLogger : public Logger {
 public:
  // The console is borrowed and outlives the logger.
  explicit NSLogLogger(Console& console = Console::shared());

  // Writes "NAME - MESSAGE" whatever the classification, without formatMessage. log:message:
  void logMessage(Classification classification, const std::optional<Value>& message);

  bool writesClassification(Classification classification) const override;
  std::optional<std::string> formatMessage(std::string_view message, const LogLineIdentifier& line,
                                           Classification classification,
                                           std::string_view classString) override;
  void logMessage(std::string_view text) override;
  void flush() override {}
  void rotateLogKeeping(unsigned) override {}
  std::string className() const override { return "NSLogLogger"; }

 protected:
  void writeLine(std::string_view text, const LogLineIdentifier& line,
                 Classification classification) override;

 private:
  Console& console_;
};

}  // namespace hoist
