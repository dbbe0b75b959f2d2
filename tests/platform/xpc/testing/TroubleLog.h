// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Trouble.h"

namespace hoist::xpc {

// Collects what the platform reports, as long as it lives.
class TroubleLog {
 public:
  TroubleLog() {
    platform::setTroubleHook([lines = lines_](platform::Severity, std::string_view message) {
      std::lock_guard lock(lines->mutex);
      lines->all.emplace_back(message);
    });
  }
  ~TroubleLog() { platform::setTroubleHook(nullptr); }

  // Lines that contain the text.
  std::vector<std::string> linesWith(std::string_view text) const {
    std::lock_guard lock(lines_->mutex);
    std::vector<std::string> found;
    for (const auto& line : lines_->all) {
      if (line.find(text) != std::string::npos) found.push_back(line);
    }
    return found;
  }
  bool has(std::string_view text) const { return !linesWith(text).empty(); }

 private:
  struct Lines {
    std::mutex mutex;
    std::vector<std::string> all;
  };
  std::shared_ptr<Lines> lines_ = std::make_shared<Lines>();
};

}  // namespace hoist::xpc
