// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "exceptions/ExceptionTransport.h"

#include <fmt/format.h>

#include <atomic>

#include "logging/Logger.h"
#include "platform/KeyedArchiver.h"
#include "platform/KeyedUnarchiver.h"
#include "values/ClassRegistry.h"

namespace hoist {
namespace {

const AllowedClasses& exceptionClasses() {
  static const auto& classes = *new AllowedClasses{"NSException"};
  return classes;
}

// Whoever raises or catches an exception need not know what it takes to archive one.
void registerClasses() {
  const auto& known = ClassRegistry::shared();
  if (!known.contains("KLException")) KLException::registerClass();
  if (!known.contains("NSError")) Error::registerClass();
}

std::atomic<bool>& persistSwitch() {
  static std::atomic<bool> persist = false;
  return persist;
}

}  // namespace

std::optional<KLException> asKLException(const Exception& exception) {
  return KLException::from(exception);
}

std::optional<KLException> asSoftException(const Exception& exception) {
  auto own = asKLException(exception);
  return own && own->isSoft() ? own : std::nullopt;
}

Data dataForException(const Exception& exception) {
  registerClasses();
  return KeyedArchiver::archivedDataWithRootObject(exception.state(), {"NSException", "NSError"});
}

std::optional<Exception> exceptionFromData(const std::optional<Data>& data) {
  if (!data) return std::nullopt;
  registerClasses();
  // The class is looked at first, so that nothing else is made on a peer's word.
  KeyedUnarchiver unarchiver(*data);
  auto className = unarchiver.classNameForKey(kKeyedArchiveRootObjectKey);
  if (className && ClassRegistry::shared().isKindOf(*className, exceptionClasses())) {
    auto root = unarchiver.decodeTopLevelObject(kKeyedArchiveRootObjectKey, exceptionClasses());
    if (auto state = root ? root->objectAs<ExceptionState>() : nullptr) return Exception(state);
  }
  Logger::log(classification::Debug, [&] {
    return fmt::format("{} exception object was actually a {}",
                       "+[NSException(KLException) exceptionFromData:]", describe(className));
  });
  return std::nullopt;
}

void raiseOrPersist(const Exception& exception) {
  if (!failuresPersist()) {
    // As the type that it is, whatever handle was passed.
    if (auto own = asKLException(exception)) own->raise();
    exception.raise();
  }
  auto line =
      Logger::logPlaceholder(classification::Warning, nullptr, "Ignored failures", "ShePersisted");
  Logger::logException(classification::Failure, line, exception);
}

bool failuresPersist() {
  return persistSwitch();
}

void setFailuresPersist(bool persist) {
  persistSwitch() = persist;
}

}  // namespace hoist
