// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The class operations: most of them forward to the default logger. With them, what all loggers
// share: the root line and the lines of placeholders.

#include <unistd.h>

#include <chrono>
#include <map>

#include "exceptions/KLException.h"
#include "logging/LoggerInUse.h"
#include "platform/Calendar.h"
#include "platform/Clock.h"
#include "values/product.h"

namespace hoist {
namespace {

// So often the exception of one placeholder's reason is written.
constexpr std::uint64_t kMaximumExceptionsOfReason = 60;

struct PlaceholderLines {
  SpinLock lock;
  std::map<std::string, Ref<LogLineIdentifier>, std::less<>> lines GUARDED_BY(lock);
};
PlaceholderLines& placeholders() {
  static auto& instance = *new PlaceholderLines;
  return instance;
}

}  // namespace

const Ref<LogLineIdentifier>& Logger::rootLogLine() {
  static const auto& root = *new Ref<LogLineIdentifier>(
      makeRootLogLine(Clock::now(), static_cast<std::uint64_t>(::getpid())));
  return root;
}

Ref<LogLineIdentifier> Logger::makeRootLogLine(Date now, std::uint64_t processIdentifier) {
  // Days are counted from 1 January of the year 1, which is day 1.
  constexpr std::uint64_t kDayOf1970 = 719163;
  auto local = Calendar::componentsOf(now);
  auto date = std::chrono::year(static_cast<int>(local.year)) /
              std::chrono::month(static_cast<unsigned>(local.month)) /
              std::chrono::day(static_cast<unsigned>(local.day));
  auto day = static_cast<std::uint64_t>(std::chrono::sys_days(date).time_since_epoch().count()) +
             kDayOf1970;
  auto minute = static_cast<std::uint64_t>(local.hour * 60 + local.minute + 1);
  std::uint64_t fraction = std::min<std::uint64_t>(minute, 1439) * 100 / 1440;

  auto application = LogLineIdentifier::initExtending(nullptr, product::kApplicationNumber);
  auto start = LogLineIdentifier::initExtending(application, day * 100 + fraction);
  return LogLineIdentifier::initExtending(start, processIdentifier);
}

Ref<LogLineIdentifier> Logger::logLineForKey(std::string_view key) {
  SpinLockHolder holder(placeholders().lock);
  auto found = placeholders().lines.find(key);
  return found == placeholders().lines.end() ? nullptr : found->second;
}

void Logger::setLogLine(const Ref<LogLineIdentifier>& line, std::string_view key) {
  std::string ownKey(key);
  SpinLockHolder holder(placeholders().lock);
  if (line) {
    placeholders().lines.insert_or_assign(std::move(ownKey), line);
  } else {
    placeholders().lines.erase(ownKey);
  }
}

Ref<LogLineIdentifier> Logger::log(Classification classification, LogMessage message) {
  return LoggerInUse()->logInLineMessage(classification, nullptr, message);
}

Ref<LogLineIdentifier> Logger::log(Classification classification,
                                   const Ref<LogLineIdentifier>& parent, LogMessage message) {
  return LoggerInUse()->logInLineMessage(classification, parent, message);
}

Ref<LogLineIdentifier> Logger::logPlaceholder(Classification classification, LogMessage message,
                                              std::string_view key) {
  return logPlaceholder(classification, nullptr, message, key);
}

Ref<LogLineIdentifier> Logger::logPlaceholder(Classification classification,
                                              const Ref<LogLineIdentifier>& parent,
                                              LogMessage message, std::string_view key) {
  if (auto line = logLineForKey(key)) return line;
  auto line = log(classification, parent, message);
  setLogLine(line, key);
  return line;
}

Ref<LogLineIdentifier> Logger::logPlaceholder(Classification classification,
                                              const Ref<LogLineIdentifier>& parent,
                                              LogMessage message, std::string_view key,
                                              const Exception* exception) {
  auto line = logPlaceholder(classification, parent, message, key);
  if (!exception) return line;
  std::string reason = describe(exception->reason());
  auto ofReason = logPlaceholder(classification::Plain, line, reason, std::string(key) + reason);
  if (ofReason->count() < kMaximumExceptionsOfReason) {
    logException(classification::Debug, ofReason, *exception);
  }
  return ofReason;
}

Ref<LogLineIdentifier> Logger::logException(const Exception& exception) {
  return logException(classification::Preferred, nullptr, exception);
}

Ref<LogLineIdentifier> Logger::logException(Classification classification,
                                            const Exception& exception) {
  return logException(classification, nullptr, exception);
}

Ref<LogLineIdentifier> Logger::logException(Classification classification,
                                            const Ref<LogLineIdentifier>& parent,
                                            const Exception& exception) {
  return LoggerInUse()->logMapInLineException(
      classification, &KLException::userInfoLogClassifications(), parent, exception);
}

Ref<LogLineIdentifier> Logger::logNewException(const Exception& exception) {
  return logNewException(classification::Preferred, exception);
}

Ref<LogLineIdentifier> Logger::logNewException(Classification classification,
                                               const Exception& exception) {
  return LoggerInUse()->isNewException(exception) ? logException(classification, exception)
                                                  : nullptr;
}

Ref<LogLineIdentifier> Logger::logMessageWithExceptionDetails(Classification classification,
                                                              const Ref<LogLineIdentifier>& parent,
                                                              LogMessage message,
                                                              const Exception* exception) {
  auto line = log(classification, parent, message);
  if (exception) logException(classification::Details, line, *exception);
  return line;
}

Ref<LogLineIdentifier> Logger::logError(Classification classification,
                                        const std::optional<std::string>& message,
                                        const Ref<Error>& error) {
  auto described = error ? error->localizedDescription() : std::nullopt;
  std::string text = message.value_or(described.value_or("Unexpected error"));
  auto exception = KLException::error(error, "IO", "general problem");
  return logMessageWithExceptionDetails(classification, nullptr, text, &exception);
}

Ref<LogLineIdentifier> Logger::logDebugError(const Ref<Error>& error) {
  return logError(classification::Debug, std::nullopt, error);
}

Ref<LogLineIdentifier> Logger::logKeyValue(Classification classification,
                                           const Ref<LogLineIdentifier>& parent,
                                           std::string_view key,
                                           const std::optional<Value>& value) {
  return LoggerInUse()->logInLineKeyValue(classification, parent, key, value);
}

}  // namespace hoist
