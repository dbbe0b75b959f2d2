// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What the process has one of: the default logger, the root line, the lines of placeholders; and
// the class operations that forward to the default logger.

#include <unistd.h>

#include <chrono>
#include <map>

#include "exceptions/KLException.h"
#include "logging/Logger.h"
#include "logging/NSLogLogger.h"
#include "platform/AssertionHandler.h"
#include "platform/Clock.h"
#include "platform/Trouble.h"
#include "values/ClassRegistry.h"
#include "values/product.h"

namespace hoist {
namespace {

// So often the exception of one placeholder's reason is written.
constexpr std::uint64_t kMaximumExceptionsOfReason = 60;

struct Shared {
  SpinLock lock;
  Ref<Logger> logger GUARDED_BY(lock);
  std::map<std::string, Ref<LogLineIdentifier>, std::less<>> lines GUARDED_BY(lock);

  Ref<Logger> current() {
    SpinLockHolder holder(lock);
    return logger;
  }
  // The one that is replaced is let go outside the lock.
  void install(Ref<Logger> replacement) {
    SpinLockHolder holder(lock);
    logger.swap(replacement);
    holder.unlock();
  }
};

Shared& shared() {
  static auto& instance = *new Shared;
  return instance;
}

// Null when there is no such class or it makes no logger.
Ref<Logger> makeLogger(std::string_view className) {
  auto known = ClassRegistry::shared().find(className);
  return known && known->create ? as<Logger>(known->create()) : nullptr;
}

void installFallback() {
  constexpr std::string_view kForRoot[] = {"NullLogger", "NSLogLogger"};
  constexpr std::string_view kForOthers[] = {"NSLogLogger", "NullLogger"};
  const auto& names = ::geteuid() == 0 ? kForRoot : kForOthers;
  for (auto name : names) {
    if (auto logger = makeLogger(name)) return Logger::setDefaultLogger(logger);
  }
  failAssertion({"+[Logger defaultLogger]", __FILE__, __LINE__},
                std::string("could not create fallback Logger; tried ")
                    .append(names[0])
                    .append(", ")
                    .append(names[1]));
}

void installStandardLogger() {
  auto fallback = shared().current();
  auto putBack = [&](const Exception& exception) {
    shared().install(fallback);
    if (!as<NSLogLogger>(fallback)) return;
    fallback->logInLineMessage(classification::Failure, nullptr,
                               "could not create standard logger; logging to console");
    fallback->logMapInLineException(classification::Failure, nullptr, nullptr, exception);
  };
  try {
    if (auto logger = makeLogger("LogFileLogger")) Logger::setDefaultLogger(logger);
  } catch (const Exception& exception) {
    putBack(exception);
  } catch (const std::exception& exception) {
    putBack(Exception(Exception::kGenericException, exception.what()));
  }
}

}  // namespace

Ref<Logger> Logger::defaultLogger() {
  if (auto logger = shared().current()) return logger;
  [[maybe_unused]] static const bool registered = (registerClasses(), true);
  installFallback();
  installStandardLogger();
  auto logger = shared().current();
  // Released meanwhile by another thread: chosen anew.
  return logger ? logger : defaultLogger();
}

void Logger::setDefaultLogger(const Ref<Logger>& logger) {
  releaseDefaultLogger();
  if (logger) logger->reopen();
  shared().install(logger);
}

void Logger::releaseDefaultLogger() {
  shared().install(nullptr);
}

void Logger::registerClasses() {
  ClassRegistry::shared().add({.name = "Logger",
                               .superclass = "",
                               .decode = nullptr,
                               .create = [] { return make<Logger>(); },
                               .classObject = nullptr});
  ClassRegistry::shared().add({.name = "NSLogLogger",
                               .superclass = "Logger",
                               .decode = nullptr,
                               .create = [] { return make<NSLogLogger>(); },
                               .classObject = nullptr});
}

void Logger::receivePlatformTrouble() {
  platform::setTroubleHook([](platform::Severity severity, std::string_view message) {
    log(static_cast<Classification>(severity), message);
  });
}

const Ref<LogLineIdentifier>& Logger::rootLogLine() {
  static const auto& root = *new Ref<LogLineIdentifier>(
      makeRootLogLine(Clock::now(), static_cast<std::uint64_t>(::getpid())));
  return root;
}

Ref<LogLineIdentifier> Logger::makeRootLogLine(Date now, std::uint64_t processIdentifier) {
  // Days are counted from 1 January of the year 1, which is day 1.
  constexpr std::uint64_t kDayOf1970 = 719163;
  std::time_t seconds = now.seconds();
  std::tm local{};
  ::localtime_r(&seconds, &local);
  auto date = std::chrono::year(local.tm_year + 1900) / (local.tm_mon + 1) / local.tm_mday;
  auto day = static_cast<std::uint64_t>(std::chrono::sys_days(date).time_since_epoch().count()) +
             kDayOf1970;
  auto minute = static_cast<std::uint64_t>(local.tm_hour * 60 + local.tm_min + 1);
  std::uint64_t fraction = std::min<std::uint64_t>(minute, 1439) * 100 / 1440;

  auto application = LogLineIdentifier::initExtending(nullptr, product::kApplicationNumber);
  auto start = LogLineIdentifier::initExtending(application, day * 100 + fraction);
  return LogLineIdentifier::initExtending(start, processIdentifier);
}

Ref<LogLineIdentifier> Logger::logLineForKey(std::string_view key) {
  SpinLockHolder holder(shared().lock);
  auto found = shared().lines.find(key);
  return found == shared().lines.end() ? nullptr : found->second;
}

void Logger::setLogLine(const Ref<LogLineIdentifier>& line, std::string_view key) {
  std::string ownKey(key);
  SpinLockHolder holder(shared().lock);
  if (line) {
    shared().lines.insert_or_assign(std::move(ownKey), line);
  } else {
    shared().lines.erase(ownKey);
  }
}

Ref<LogLineIdentifier> Logger::log(Classification classification, LogMessage message) {
  return defaultLogger()->logInLineMessage(classification, nullptr, message);
}

Ref<LogLineIdentifier> Logger::log(Classification classification,
                                   const Ref<LogLineIdentifier>& parent, LogMessage message) {
  return defaultLogger()->logInLineMessage(classification, parent, message);
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
  return defaultLogger()->logMapInLineException(
      classification, &KLException::userInfoLogClassifications(), parent, exception);
}

Ref<LogLineIdentifier> Logger::logNewException(const Exception& exception) {
  return logNewException(classification::Preferred, exception);
}

Ref<LogLineIdentifier> Logger::logNewException(Classification classification,
                                               const Exception& exception) {
  return defaultLogger()->isNewException(exception) ? logException(classification, exception)
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
  return defaultLogger()->logInLineKeyValue(classification, parent, key, value);
}

}  // namespace hoist
