// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/Date.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>

namespace hoist {

Date Date::fromSeconds(double secondsSince1970) {
  // The largest double below 2^63.
  constexpr double kLimit = 9223372036854774784.0;
  if (std::isnan(secondsSince1970)) return Date();
  if (secondsSince1970 > kLimit) return Date(std::numeric_limits<std::int64_t>::max());
  if (secondsSince1970 < -kLimit) return Date(std::numeric_limits<std::int64_t>::min());
  double whole = std::floor(secondsSince1970);
  return Date(static_cast<std::int64_t>(whole), std::llround((secondsSince1970 - whole) * 1e9));
}

double Date::secondsSince(Date other) const {
  return static_cast<double>(seconds_ - other.seconds_) +
         static_cast<double>(nanoseconds_ - other.nanoseconds_) / 1e9;
}

Date Date::plusSeconds(double seconds) const {
  Date offset = fromSeconds(seconds);
  std::int64_t sum;
  if (__builtin_add_overflow(seconds_, offset.seconds_, &sum)) {
    return Date(seconds > 0 ? std::numeric_limits<std::int64_t>::max()
                            : std::numeric_limits<std::int64_t>::min());
  }
  std::int64_t nanoseconds = nanoseconds_ + offset.nanoseconds_;
  if (nanoseconds >= 1'000'000'000 && sum == std::numeric_limits<std::int64_t>::max())
    return Date(sum);
  return Date(sum, nanoseconds);
}

std::string Date::description() const {
  using namespace std::chrono;
  // Beyond these years the calendar arithmetic of <chrono> is not defined: show the seconds
  // instead.
  constexpr std::int64_t kLimit = 31'556'952LL * 32'000;
  char text[64];
  if (seconds_ > kLimit || seconds_ < -kLimit) {
    std::snprintf(text, sizeof text, "%lld s +0000", static_cast<long long>(seconds_));
    return text;
  }
  sys_seconds instant{std::chrono::seconds(seconds_)};
  auto day = floor<days>(instant);
  year_month_day date{day};
  hh_mm_ss time{instant - day};
  std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02d +0000",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
  return text;
}

}  // namespace hoist
