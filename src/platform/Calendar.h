// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "values/Date.h"

namespace hoist {

// A local date and time, Gregorian in both directions. Fields outside their usual range are taken
// as they count: hour 25 is one o'clock the next day, month 0 the December before.
struct DateComponents {
  std::int64_t year = 1;  // astronomical: 0 is 1 BC, -1 is 2 BC
  std::int64_t month = 1;
  std::int64_t day = 1;
  std::int64_t hour = 0;
  std::int64_t minute = 0;
  std::int64_t second = 0;
};

// The user's calendar: Gregorian, in the local time zone (TZ, else /etc/localtime; a change is seen
// by the next call). Results beyond the range of Date saturate. Safe from any thread.
class Calendar {
 public:
  enum class Unit { Minute, Hour, Day, Week, Month, Year };

  // Whatever is below a second is cut off.
  static DateComponents componentsOf(Date date);
  // A time that the zone skips moves forward by the gap; of a time that occurs twice, the first.
  static Date dateFromComponents(const DateComponents& components);
  // The first instant of the local day, which is not midnight where the zone skips that.
  static Date startOfDay(Date date);
  // Minutes and hours are elapsed time; the larger units keep the local time of day, and months and
  // years cut the day to the length of the month. Keeps what is below a second.
  static Date dateByAdding(Date date, Unit unit, std::int64_t amount);
  // Seconds east of UTC at that instant.
  static std::int64_t secondsFromUTC(Date date);
};

}  // namespace hoist
