// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Mutex.h"
#include "values/Date.h"

namespace hoist {

// Writes instants in the local time zone, after a pattern of Unicode's date fields. The fields are
// yyyy, MM, dd, HH, mm, ss, SSS (milliseconds, cut) and Z (the zone's offset, "+0100"); what is no
// letter stands for itself. The text of a second is made once and reused for as long as the same
// second is asked for. Safe to use from any thread.
class DateFormatter {
 public:
  // Throws std::invalid_argument for any other letter, or for more than one SSS.
  explicit DateFormatter(std::string_view pattern);

  std::string stringFromDate(Date date) const;
  // The same, put after what is in the text. An instant outside the years 1 to 9999 is written as
  // its seconds since 1970.
  void appendDate(Date date, std::string& text) const;

 private:
  // The text of one second, around the place where the milliseconds go.
  struct Second {
    std::int64_t second;
    std::string before;
    std::string after;
  };
  Second textOfSecond(std::int64_t second) const;
  void append(const Second& second, Date date, std::string& text) const;

  // In GLib's format language.
  std::string formatBefore_;
  std::string formatAfter_;
  bool hasMilliseconds_ = false;

  mutable SpinLock lock_;
  mutable Second last_ GUARDED_BY(lock_);
};

}  // namespace hoist
