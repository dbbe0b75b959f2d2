// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/Trouble.h"

namespace hoist {

// Keeps what the platform reports while it lives.
class TroubleRecorder {
 public:
  TroubleRecorder() {
    platform::setTroubleHook([this](platform::Severity, std::string_view message) {
      std::lock_guard lock(mutex_);
      messages_.emplace_back(message);
    });
  }
  ~TroubleRecorder() { platform::setTroubleHook(nullptr); }
  TroubleRecorder(const TroubleRecorder&) = delete;
  TroubleRecorder& operator=(const TroubleRecorder&) = delete;

  std::vector<std::string> messages() const {
    std::lock_guard lock(mutex_);
    return messages_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> messages_;
};

}  // namespace hoist
