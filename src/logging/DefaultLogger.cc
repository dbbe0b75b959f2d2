// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The one default logger of the process: how it is chosen, replaced and held while it is used.

#include <unistd.h>

#include <atomic>

#include "logging/LoggerInUse.h"
#include "logging/NSLogLogger.h"
#include "platform/AssertionHandler.h"
#include "platform/Trouble.h"
#include "values/ClassRegistry.h"

namespace hoist {
namespace {

struct Shared {
  SpinLock lock;
  Ref<Logger> logger GUARDED_BY(lock);
  // Counts the changes of the logger, so that a thread sees that the one it kept is out of date.
  std::atomic<std::uint64_t> generation = 0;

  Ref<Logger> current() {
    SpinLockHolder holder(lock);
    return logger;
  }
  void install(Ref<Logger> replacement) {
    SpinLockHolder holder(lock);
    exchange(replacement);
    // The one that is replaced is let go after the lock.
    holder.unlock();
  }
  // Not when another thread has changed the logger meanwhile.
  void installInPlaceOf(const Ref<Logger>& expected, Ref<Logger> replacement) {
    SpinLockHolder holder(lock);
    if (logger == expected) exchange(replacement);
    holder.unlock();
  }

 private:
  void exchange(Ref<Logger>& replacement) REQUIRES(lock) {
    logger.swap(replacement);
    ++generation;
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

Ref<Logger> installFallback() {
  constexpr std::string_view kForRoot[] = {"NullLogger", "NSLogLogger"};
  constexpr std::string_view kForOthers[] = {"NSLogLogger", "NullLogger"};
  const auto& names = ::geteuid() == 0 ? kForRoot : kForOthers;
  for (auto name : names) {
    if (auto logger = makeLogger(name)) {
      logger->reopen();
      shared().installInPlaceOf(nullptr, logger);
      return logger;
    }
  }
  failAssertion({"+[Logger defaultLogger]", __FILE__, __LINE__},
                std::string("could not create fallback Logger; tried ")
                    .append(names[0])
                    .append(", ")
                    .append(names[1]));
}

void reportStandardLogger(const Exception& exception) {
  auto fallback = as<NSLogLogger>(shared().current());
  if (!fallback) return;
  fallback->logInLineMessage(classification::Failure, nullptr,
                             "could not create standard logger; logging to console");
  fallback->logMapInLineException(classification::Failure, nullptr, nullptr, exception);
}

// The fallback stays in its place until the standard logger is ready, for what that logs itself and
// for what is to be said if it fails.
void installStandardLogger(const Ref<Logger>& fallback) {
  try {
    auto logger = makeLogger("LogFileLogger");
    if (!logger) return;
    logger->reopen();
    shared().installInPlaceOf(fallback, logger);
  } catch (const Exception& exception) {
    reportStandardLogger(exception);
  } catch (const std::exception& exception) {
    reportStandardLogger(Exception(Exception::kGenericException, exception.what()));
  }
}

}  // namespace

thread_local bool LoggerInUse::threadEnds_ = false;
thread_local LoggerInUse::Kept LoggerInUse::kept_;

LoggerInUse::LoggerInUse() : generation_(shared().generation) {
  if (!threadEnds_) logger_ = std::move(kept_.logger);
  if (!logger_ || kept_.generation != generation_) logger_ = Logger::defaultLogger();
}

LoggerInUse::~LoggerInUse() {
  if (threadEnds_) return;
  kept_.logger = std::move(logger_);
  kept_.generation = generation_;
}

void LoggerInUse::forget() {
  if (!threadEnds_) kept_.logger.reset();
}

Ref<Logger> Logger::defaultLogger() {
  if (auto logger = shared().current()) return logger;
  [[maybe_unused]] static const bool registered = (registerClasses(), true);
  installStandardLogger(installFallback());
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
  LoggerInUse::forget();
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
  platform::setExceptionHook([](std::string_view place, const Exception& exception) {
    logMessageWithExceptionDetails(
        classification::Failure, nullptr,
        [&] { return std::string(place) + " raised: " + exception.what(); }, &exception);
  });
}

}  // namespace hoist
