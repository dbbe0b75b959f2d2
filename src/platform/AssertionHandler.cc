// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/AssertionHandler.h"

#include <fmt/format.h>
#include <syslog.h>

#include "platform/Console.h"
#include "platform/Utf8.h"

namespace hoist {

void reportFailureInMethod(const AssertionPlace& place, std::string_view message) {
  Console::shared().write(LOG_CRIT,
                          fmt::format("*** Assertion failure in {}, {}:{}: {}", place.method,
                                      validUTF8(place.file), place.line, message));
}

void failAssertion(const AssertionPlace& place, const std::string& message) {
  reportFailureInMethod(place, message);
  AssertionFailure(message).raise();
}

void failAssertion(const AssertionPlace& place, const std::string& message,
                   const Exception* object) {
  if (!object) failAssertion(place, message);
  reportFailureInMethod(place, message);
  object->raise();
}

}  // namespace hoist
