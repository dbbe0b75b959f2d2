// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "logging/NSLogLogger.h"

#include <syslog.h>

#include <array>

#include "values/product.h"

namespace hoist {
namespace {

int priorityOf(Classification classification) {
  switch (classification) {
    case classification::Failure:
      return LOG_ERR;
    case classification::Warning:
      return LOG_WARNING;
    case classification::Caution:
      return LOG_NOTICE;
    case classification::Subrosa:
    case classification::Debug:
      return LOG_DEBUG;
    default:
      return LOG_INFO;
  }
}

}  // namespace

NSLogLogger::NSLogLogger(Console& console) : console_(console) {}

void NSLogLogger::logMessage(Classification classification, const std::optional<Value>& message) {
  std::string text(nameOfClassification(classification));
  logMessage(text.append(" - ").append(describe(message)));
}

bool NSLogLogger::writesClassification(Classification classification) const {
  return classification != classification::Subrosa && classification != classification::Debug;
}

std::optional<std::string> NSLogLogger::formatMessage(std::string_view message,
                                                      const LogLineIdentifier&,
                                                      Classification classification,
                                                      std::string_view classString) {
  if (!writesClassification(classification)) return std::nullopt;
  if (classification == classification::Plain) return std::string(message);
  std::string text;
  text.reserve(classString.size() + message.size() + 3);
  return text.append("(").append(classString).append(") ").append(message);
}

void NSLogLogger::logMessage(std::string_view text) {
  console_.write(LOG_INFO, text);
}

void NSLogLogger::writeLine(std::string_view text, const LogLineIdentifier& line,
                            Classification classification) {
  if (console_.destination() == Console::Destination::Descriptor) return logMessage(text);
  std::string identifier = line.description();
  std::array<ConsoleField, 2> fields = {{
      {product::kJournalLineField, identifier},
      {product::kJournalClassField, nameOfClassification(classification)},
  }};
  console_.write(priorityOf(classification), text, fields);
}

}  // namespace hoist
