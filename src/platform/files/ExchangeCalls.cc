// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/ExchangeCalls.h"

#include <fcntl.h>
#include <stdio.h>

#include <atomic>
#include <cerrno>

namespace hoist::files {
namespace {

std::atomic<ExchangeCalls*> overridden = nullptr;

}  // namespace

ExchangeCalls::~ExchangeCalls() = default;

int ExchangeCalls::swap(const char* a, const char* b) {
  return ::renameat2(AT_FDCWD, a, AT_FDCWD, b, RENAME_EXCHANGE);
}

int ExchangeCalls::exchangedata(const char*, const char*) {
  errno = ENOTSUP;
  return -1;
}

int ExchangeCalls::rename(const char* from, const char* to) {
  return ::rename(from, to);
}

ExchangeCalls& ExchangeCalls::current() {
  static auto& system = *new ExchangeCalls;
  auto calls = overridden.load(std::memory_order_acquire);
  return calls ? *calls : system;
}

ExchangeCallsOverride::ExchangeCallsOverride(ExchangeCalls& calls)
    : previous_(overridden.exchange(&calls)) {}

ExchangeCallsOverride::~ExchangeCallsOverride() {
  overridden = previous_;
}

}  // namespace hoist::files
