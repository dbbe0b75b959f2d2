// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Trouble.h"

#include <unistd.h>

#include <exception>
#include <memory>
#include <mutex>
#include <string>

#include "platform/Exception.h"

namespace hoist::platform {
namespace {

// A function that is called without the lock that guards it.
template <class Function>
class Hook {
 public:
  void set(Function function) {
    auto shared = function ? std::make_shared<const Function>(std::move(function)) : nullptr;
    std::lock_guard lock(mutex_);
    function_ = std::move(shared);
  }
  std::shared_ptr<const Function> get() {
    std::lock_guard lock(mutex_);
    return function_;
  }

 private:
  std::mutex mutex_;
  std::shared_ptr<const Function> function_;
};

struct Hooks {
  Hook<TroubleHook> trouble;
  Hook<ExceptionHook> exception;
};
Hooks& hooks() {
  static auto& instance = *new Hooks;
  return instance;
}

std::string raisedText(std::string_view place, const char* what) {
  return std::string(place) + " raised: " + what;
}

void reportException(std::string_view place, const Exception& exception) {
  if (auto function = hooks().exception.get()) {
    (*function)(place, exception);
  } else {
    reportTrouble(Severity::Failure, raisedText(place, exception.what()));
  }
}

}  // namespace

void setTroubleHook(TroubleHook function) {
  hooks().trouble.set(std::move(function));
}

void setExceptionHook(ExceptionHook function) {
  hooks().exception.set(std::move(function));
}

void reportTrouble(Severity severity, std::string_view message) {
  if (auto function = hooks().trouble.get()) {
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
    } catch (const Exception& exception) {
      reportException(place, exception);
    } catch (const std::exception& exception) {
      reportTrouble(Severity::Failure, raisedText(place, exception.what()));
    } catch (...) {
      reportTrouble(Severity::Failure,
                    std::string(place) + " raised something that is no exception");
    }
  } catch (...) {
    // Not even the report could be made: out of memory. Going on is all that is left.
  }
}

}  // namespace hoist::platform
