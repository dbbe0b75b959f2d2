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
  // The one that is replaced is let go outside the lock.
  void install(Ref<Logger> replacement) {
    SpinLockHolder holder(lock);
    logger.swap(replacement);
    ++generation;
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
