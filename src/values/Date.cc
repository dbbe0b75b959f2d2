// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/Date.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace hoist {

// Far beyond every date a double is cut, so that sums of two stay in range.
Date::Wide Date::nanosecondsOf(double seconds) {
  constexpr double kLimit = 1e20;
  if (std::isnan(seconds)) return 0;
  double whole = std::floor(std::clamp(seconds, -kLimit, kLimit));
  double fraction = std::abs(seconds) < kLimit ? seconds - whole : 0;
  return static_cast<Wide>(whole) * kBillion + std::llround(fraction * 1e9);
}

Date Date::fromSeconds(double secondsSince1970) {
  return fromWide(nanosecondsOf(secondsSince1970));
}

double Date::secondsSince(Date other) const {
  Wide difference = wide() - other.wide();
  // In two steps: the whole seconds of a double leave little room for what is below them.
  Wide wholeSeconds = difference / kBillion;
  return static_cast<double>(wholeSeconds) + static_cast<double>(difference % kBillion) / 1e9;
}

Date Date::plusSeconds(double seconds) const {
  return fromWide(wide() + nanosecondsOf(seconds));
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
