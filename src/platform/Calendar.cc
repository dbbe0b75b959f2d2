// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Calendar.h"

#include <algorithm>
#include <ctime>
#include <limits>

// The C library answers only "how far is local time from UTC at this instant": unlike GLib's zones,
// which know no clock change after 2037 and whose calendar ends at year 1, it covers every year
// that an int can hold. The calendar itself is the usual count of days in eras of 400 years,
// shifted so that a year begins in March and the leap day is its last. mktime is not used: what it
// makes of skipped and doubled times depends on a flag that we do not know.

namespace hoist {
namespace {

using Wide = __int128;  // sums of 64-bit fields, before they are cut to the range of Date

constexpr std::int64_t kDay = 86'400;
constexpr std::int64_t kDaysPerEra = 146'097;
constexpr std::int64_t kDaysFromMarchOfYear0To1970 = 719'468;
// The C library's years are ints: beyond this many seconds the offset at the limit is used.
constexpr std::int64_t kZoneLimit = 2'000'000'000LL * 31'556'952;

constexpr std::int64_t clamped(Wide value) {
  constexpr Wide kMin = std::numeric_limits<std::int64_t>::min();
  constexpr Wide kMax = std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(std::clamp(value, kMin, kMax));
}

constexpr Wide floorDivide(Wide value, Wide divisor) {
  return value / divisor - (value % divisor < 0 ? 1 : 0);
}

constexpr Wide daysFromCivil(Wide year, std::int64_t month, Wide day) {
  if (month <= 2) --year;
  Wide era = floorDivide(year, 400);
  Wide yearOfEra = year - era * 400;
  Wide dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5;
  Wide dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * kDaysPerEra + dayOfEra - kDaysFromMarchOfYear0To1970 + day - 1;
}
static_assert(daysFromCivil(1970, 1, 1) == 0);
static_assert(daysFromCivil(2000, 3, 1) == 11'017);

// Fills year, month and day.
constexpr DateComponents civilFromDays(std::int64_t days) {
  Wide shifted = Wide{days} + kDaysFromMarchOfYear0To1970;
  Wide era = floorDivide(shifted, kDaysPerEra);
  auto dayOfEra = static_cast<std::int64_t>(shifted - era * kDaysPerEra);
  std::int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1'460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
  std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
  DateComponents result;
  result.day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
  result.month = shiftedMonth + (shiftedMonth < 10 ? 3 : -9);
  result.year = clamped(era * 400 + yearOfEra + (result.month <= 2 ? 1 : 0));
  return result;
}

std::int64_t offsetAt(Wide instant) {
  auto time = static_cast<time_t>(std::clamp<Wide>(instant, -kZoneLimit, kZoneLimit));
  tzset();
  tm local{};
  return localtime_r(&time, &local) ? local.tm_gmtoff : 0;
}

std::int64_t localSeconds(std::int64_t instant) {
  return clamped(Wide{instant} + offsetAt(instant));
}

// Local seconds of the components, with a month and a day that may be out of range.
Wide localSecondsOf(const DateComponents& at) {
  Wide months = Wide{at.month} - 1;
  Wide year = Wide{at.year} + floorDivide(months, 12);
  auto month = static_cast<std::int64_t>(months - floorDivide(months, 12) * 12) + 1;
  return daysFromCivil(year, month, at.day) * kDay + Wide{at.hour} * 3'600 + Wide{at.minute} * 60 +
         at.second;
}

// The instant at which local clocks show these seconds.
std::int64_t instantOf(Wide local) {
  std::int64_t before = offsetAt(local - kDay);
  std::int64_t after = offsetAt(local + kDay);
  // The larger offset gives the earlier instant.
  for (std::int64_t offset : {std::max(before, after), std::min(before, after)}) {
    if (offsetAt(local - offset) == offset) return clamped(local - offset);
  }
  // No clock ever showed it: the clocks went forward over it. Counting on by the old offset lands
  // as far behind the gap as the time was inside it.
  return clamped(local - before);
}

std::int64_t dayOf(std::int64_t local) {
  return static_cast<std::int64_t>(floorDivide(local, kDay));
}

std::int64_t daysInMonth(std::int64_t year, std::int64_t month) {
  Wide next = month == 12 ? daysFromCivil(Wide{year} + 1, 1, 1) : daysFromCivil(year, month + 1, 1);
  return static_cast<std::int64_t>(next - daysFromCivil(year, month, 1));
}

DateComponents byAddingMonths(DateComponents at, Wide months) {
  Wide count = Wide{at.month} - 1 + months;
  Wide years = floorDivide(count, 12);
  at.month = static_cast<std::int64_t>(count - years * 12) + 1;
  at.year = clamped(Wide{at.year} + years);
  at.day = std::min(at.day, daysInMonth(at.year, at.month));
  return at;
}

}  // namespace

DateComponents Calendar::componentsOf(Date date) {
  std::int64_t local = localSeconds(date.seconds());
  DateComponents result = civilFromDays(dayOf(local));
  auto second = static_cast<std::int64_t>(local - Wide{dayOf(local)} * kDay);
  result.hour = second / 3'600;
  result.minute = second / 60 % 60;
  result.second = second % 60;
  return result;
}

Date Calendar::dateFromComponents(const DateComponents& components) {
  return Date(instantOf(localSecondsOf(components)));
}

Date Calendar::startOfDay(Date date) {
  std::int64_t day = dayOf(localSeconds(date.seconds()));
  std::int64_t midnight = clamped(Wide{day} * kDay);
  std::int64_t start = instantOf(midnight);
  if (localSeconds(start) == midnight) return Date(start);
  // Midnight was skipped: search the instant of the change, the first that is in the day.
  std::int64_t outside = clamped(Wide{start} - kDay);
  while (start - outside > 1) {
    std::int64_t middle = outside + (start - outside) / 2;
    (dayOf(localSeconds(middle)) < day ? outside : start) = middle;
  }
  return Date(start);
}

Date Calendar::dateByAdding(Date date, Unit unit, std::int64_t amount) {
  auto at = [&](Wide seconds) { return Date(clamped(seconds), date.nanoseconds()); };
  auto inCalendar = [&](Wide days, Wide months) {
    DateComponents components = byAddingMonths(componentsOf(date), months);
    return at(instantOf(localSecondsOf(components) + days * kDay));
  };
  switch (unit) {
    case Unit::Minute:
      return at(date.seconds() + Wide{amount} * 60);
    case Unit::Hour:
      return at(date.seconds() + Wide{amount} * 3'600);
    case Unit::Day:
      return inCalendar(amount, 0);
    case Unit::Week:
      return inCalendar(Wide{amount} * 7, 0);
    case Unit::Month:
      return inCalendar(0, amount);
    case Unit::Year:
      return inCalendar(0, Wide{amount} * 12);
  }
  return date;
}

std::int64_t Calendar::secondsFromUTC(Date date) {
  return offsetAt(date.seconds());
}

}  // namespace hoist
