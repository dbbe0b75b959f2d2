// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

#include "platform/Mutex.h"
#include "platform/xpc/ArgumentReader.h"
#include "platform/xpc/Interface.h"
#include "platform/xpc/Proxy.h"

namespace hoist::xpc {

// A message that waits for its answer.
struct PendingCall {
  Ref<Interface> interface;
  const Method* method;
  std::function<void(ArgumentReader&)> read;  // reads the reply's values and calls the completion
  ErrorHandler handler;                       // may be empty
};

// The calls of one connection that are sent and not yet answered. Whoever takes one out calls
// exactly one of its functions. Safe to use from any thread.
class PendingCalls {
 public:
  // Answers false when there are too many already.
  bool add(std::uint32_t serial, PendingCall call);
  std::optional<PendingCall> take(std::uint32_t serial);
  std::vector<PendingCall> takeAll();

 private:
  Mutex mutex_;
  std::unordered_map<std::uint32_t, PendingCall> calls_ GUARDED_BY(mutex_);
};

}  // namespace hoist::xpc
