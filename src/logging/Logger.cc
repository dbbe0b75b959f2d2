// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The logger that everything else is built on: numbering of lines, layout, the daily reopening.
// What all loggers share is in DefaultLogger.cc and ClassOperations.cc, entries of several lines
// are in StructuredEntries.cc.

#include "logging/Logger.h"

#include "platform/Clock.h"
#include "platform/NonLossyASCII.h"
#include "preferences/RelativeDate.h"

namespace hoist {
namespace {

// Where the clocks go back over midnight, a day begins twice: the first time may be over while the
// day before is not.
Date startOfNextDay() {
  Date now = Clock::now();
  Date next = dateOffsetBy(startOfDay(now), 1, OffsetScale::Days);
  return now < next ? next : dateOffsetBy(next, 1, OffsetScale::Days);
}

}  // namespace

Logger::Logger() : dateFormatter_(makeLogDateFormatter()) {}
Logger::~Logger() = default;

Ref<DateFormatter> Logger::makeLogDateFormatter() {
  return make<DateFormatter>("yyyy-MM-dd HH:mm:ss.SSS Z");
}

Ref<LogLineIdentifier> Logger::logInLineMessage(Classification classification,
                                                const Ref<LogLineIdentifier>& parent,
                                                LogMessage message) {
  const auto& enclosing = parent ? parent : rootLogLine();
  enclosing->noteClassification(classification);
  auto line = enclosing->next();
  if (!writesClassification(classification)) return line;
  std::string storage;
  auto text = formatMessage(message.text(storage), *line, classification,
                            nameOfClassification(classification));
  if (text) writeLine(*text, *line, classification);
  return line;
}

bool Logger::writesClassification(Classification) const {
  return true;
}

std::optional<std::string> Logger::formatMessage(std::string_view message,
                                                 const LogLineIdentifier& line, Classification,
                                                 std::string_view classString) {
  std::string text;
  text.reserve(message.size() + 96);
  dateFormatter_->appendDate(logDateReopeningLogger(), text);
  text.append(" ").append(classString).append(" ").append(message).append(" [");
  line.appendIdentifierToString(text);
  return text += ']';
}

void Logger::writeLine(std::string_view text, const LogLineIdentifier&, Classification) {
  logMessage(text);
}

void Logger::logMessage(std::string_view text) {
  logCString(nonLossyASCII(text).c_str());
}

void Logger::logCString(const char*) {}

Date Logger::reopenDate() {
  SpinLockHolder lock(lock_);
  if (!reopenDate_) reopenDate_ = startOfNextDay();
  return *reopenDate_;
}

Date Logger::logDateReopeningLogger() {
  Date now = Clock::now();
  Date due = reopenDate();
  if (now < due) return now;
  {
    // The thread that takes the date away is the one that reopens; the next one to ask makes a new.
    SpinLockHolder lock(lock_);
    if (reopenDate_ != due) return now;
    reopenDate_.reset();
  }
  try {
    reopen();
  } catch (...) {
    // The next line tries again.
    SpinLockHolder lock(lock_);
    reopenDate_ = due;
    throw;
  }
  logInLineMessage(classification::Debug, nullptr, "Reopened log file");
  return now;
}

void Logger::reopen() {
  flushBacktraceCache();
}

void Logger::flushBacktraceCache() {
  backtraces_.flush();
}

void Logger::flush() {}
void Logger::rotateLogKeeping(unsigned) {}
std::vector<std::string> Logger::logFiles() const {
  return {};
}

}  // namespace hoist
