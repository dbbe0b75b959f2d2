// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "preferences/RelativeDate.h"

#include <limits>
#include <optional>

#include "platform/Calendar.h"
#include "platform/Clock.h"

namespace hoist {
namespace {

std::optional<Calendar::Unit> unitForScale(OffsetScale scale) {
  switch (scale) {
    case OffsetScale::Minutes:
      return Calendar::Unit::Minute;
    case OffsetScale::Hours:
      return Calendar::Unit::Hour;
    case OffsetScale::Days:
      return Calendar::Unit::Day;
    case OffsetScale::Weeks:
      return Calendar::Unit::Week;
    case OffsetScale::Months:
      return Calendar::Unit::Month;
    case OffsetScale::Years:
      return Calendar::Unit::Year;
  }
  return std::nullopt;
}

std::int64_t negated(std::int64_t value) {
  using Limits = std::numeric_limits<std::int64_t>;
  return value == Limits::min() ? Limits::max() : -value;
}

}  // namespace

bool inThePast(Date date) {
  return date < Clock::now();
}

Date startOfToday() {
  return startOfDay(Clock::now());
}

Date todayWithHour(std::int64_t hour, std::int64_t minute) {
  return dateWithHour(Clock::now(), hour, minute);
}

Date startOfEra(Date date) {
  bool common = Calendar::componentsOf(date).year >= 1;
  return Calendar::dateFromComponents({.year = common ? 1 : 0});
}

Date startOfYear(Date date) {
  return Calendar::dateFromComponents({.year = Calendar::componentsOf(date).year});
}

Date startOfMonth(Date date) {
  DateComponents at = Calendar::componentsOf(date);
  return Calendar::dateFromComponents({.year = at.year, .month = at.month});
}

Date startOfDay(Date date) {
  return Calendar::startOfDay(date);
}

Date dateWithHour(Date date, std::int64_t hour, std::int64_t minute) {
  DateComponents at = Calendar::componentsOf(date);
  if (hour != kKeepDateUnit) at.hour = hour;
  if (minute != kKeepDateUnit) at.minute = minute;
  at.second = 0;
  return Calendar::dateFromComponents(at);
}

Date nextHour(Date date, std::int64_t hour, std::int64_t minute) {
  Date next = dateWithHour(date, hour, minute);
  return inThePast(next) ? dateOffsetBy(next, 1, OffsetScale::Days) : next;
}

Date dateOffsetBy(Date date, std::int64_t offset, OffsetScale scale) {
  return dateOffsetBy(date, offset, false, scale);
}

Date dateOffsetBy(Date date, std::int64_t offset, bool reverseDirection, OffsetScale scale) {
  auto unit = unitForScale(scale);
  if (offset == 0 || !unit) return date;
  return Calendar::dateByAdding(date, *unit, reverseDirection ? negated(offset) : offset);
}

}  // namespace hoist
