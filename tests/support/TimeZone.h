// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace hoist {

// Sets the local time zone while it lives.
class TimeZone {
 public:
  explicit TimeZone(const char* name) {
    if (const char* old = std::getenv("TZ")) previous_ = old;
    ::setenv("TZ", name, 1);
    ::tzset();
  }
  ~TimeZone() {
    if (previous_) {
      ::setenv("TZ", previous_->c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  std::optional<std::string> previous_;
};

}  // namespace hoist
