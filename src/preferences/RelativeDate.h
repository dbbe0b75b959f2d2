// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "values/Date.h"

// Operations on dates that the category RelativeDate adds to the platform's date: days, months and
// years as the user's calendar and time zone have them, daylight-saving changes included. All are
// safe from any thread; "now" is Clock's.
namespace hoist {

// The unit of an offset. A number above 5 adds nothing.
enum class OffsetScale : std::uint32_t {
  Minutes = 0,
  Hours = 1,
  Days = 2,
  Weeks = 3,
  Months = 4,
  Years = 5,
};

// In place of an hour or a minute: keep the date's own.
inline constexpr std::int64_t kKeepDateUnit = -1;

bool inThePast(Date date);

Date startOfToday();
// todayWithHour:minute:
Date todayWithHour(std::int64_t hour, std::int64_t minute);

// The first of January of the era's year 1: for a date before our era, that of 1 BC.
Date startOfEra(Date date);
Date startOfYear(Date date);
Date startOfMonth(Date date);
Date startOfDay(Date date);

// dateWithHour:minute: the same local day at that time, seconds 0.
Date dateWithHour(Date date, std::int64_t hour, std::int64_t minute);
// nextHour:minute: the same, or one day later when that has passed.
Date nextHour(Date date, std::int64_t hour, std::int64_t minute);

// dateOffsetBy:scale:
Date dateOffsetBy(Date date, std::int64_t offset, OffsetScale scale);
// dateOffsetBy:reverseDirection:scale:
Date dateOffsetBy(Date date, std::int64_t offset, bool reverseDirection, OffsetScale scale);

}  // namespace hoist
