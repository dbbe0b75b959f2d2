// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Trouble.h"

#include <unistd.h>

#include <exception>
#include <memory>
#include <mutex>
#include <string>

namespace hoist::platform {
namespace {

struct Hook {
  std::mutex mutex;
  std::shared_ptr<const TroubleHook> function;
};
Hook& hook() {
  static auto& instance = *new Hook;
  return instance;
}

}  // namespace

void setTroubleHook(TroubleHook function) {
  auto shared = function ? std::make_shared<const TroubleHook>(std::move(function)) : nullptr;
  std::lock_guard lock(hook().mutex);
  hook().function = std::move(shared);
}

void reportTrouble(Severity severity, std::string_view message) {
  std::shared_ptr<const TroubleHook> function;
  {
    std::lock_guard lock(hook().mutex);
    function = hook().function;
  }
  if (function) {
    (*function)(severity, message);
    return;
  }
  std::string line(message);
  line += '\n';
  [[maybe_unused]] auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

void contain(std::string_view place, const std::function<void()>& code) noexcept {
  try {
    try {
      code();
    } catch (const std::exception& exception) {
      reportTrouble(Severity::Failure, std::string(place) + " raised: " + exception.what());
    } catch (...) {
      reportTrouble(Severity::Failure,
                    std::string(place) + " raised something that is no exception");
    }
  } catch (...) {
    // Not even the report could be made: out of memory. Going on is all that is left.
  }
}

}  // namespace hoist::platform
