// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <cstdint>
#include <ctime>
#include <limits>
#include <string>

namespace hoist {

// An instant: seconds and nanoseconds since 1970-01-01 00:00:00 UTC, always normalised (0 <=
// nanoseconds < 10^9), so that times of files survive to the nanosecond and years before 1 remain
// expressible.
class Date {
 public:
  constexpr Date() = default;
  // Nanoseconds may be any number; an instant outside the range becomes the nearest in it.
  constexpr explicit Date(std::int64_t seconds, std::int64_t nanoseconds = 0)
      : Date(fromWide(Wide{seconds} * kBillion + nanoseconds)) {}
  static constexpr Date fromTimeSpec(const timespec& time) {
    return Date(time.tv_sec, time.tv_nsec);
  }
  // Rounded to the nearest nanosecond; values outside the range of 64-bit seconds become the
  // nearest instant in it, NaN 1970.
  static Date fromSeconds(double secondsSince1970);

  constexpr std::int64_t seconds() const { return seconds_; }
  constexpr std::int32_t nanoseconds() const { return static_cast<std::int32_t>(nanoseconds_); }
  double secondsSince1970() const {
    return static_cast<double>(seconds_) + static_cast<double>(nanoseconds_) / 1e9;
  }
  timespec timeSpec() const {
    return {static_cast<time_t>(seconds_), static_cast<long>(nanoseconds_)};
  }

  // Seconds from the other date to this one; negative when this one is earlier.
  double secondsSince(Date other) const;
  // Saturates; NaN adds nothing.
  Date plusSeconds(double seconds) const;

  // In UTC, like "2024-03-05 13:07:09 +0000".
  std::string description() const;

  friend constexpr auto operator<=>(const Date&, const Date&) = default;

 private:
  // Nanoseconds since 1970 of more than all instants.
  using Wide = __int128;
  static constexpr Wide kBillion = 1'000'000'000;

  static constexpr Date fromWide(Wide nanoseconds) {
    constexpr std::int64_t kEarliest = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t kLatest = std::numeric_limits<std::int64_t>::max();
    Wide seconds = nanoseconds / kBillion - (nanoseconds % kBillion < 0 ? 1 : 0);
    Date date;
    if (seconds < kEarliest || seconds > kLatest) {
      date.seconds_ = seconds < 0 ? kEarliest : kLatest;
    } else {
      date.seconds_ = static_cast<std::int64_t>(seconds);
      date.nanoseconds_ = static_cast<std::int64_t>(nanoseconds - seconds * kBillion);
    }
    return date;
  }
  static Wide nanosecondsOf(double seconds);
  constexpr Wide wide() const { return Wide{seconds_} * kBillion + nanoseconds_; }

  std::int64_t seconds_ = 0;
  std::int64_t nanoseconds_ = 0;
};

}  // namespace hoist
