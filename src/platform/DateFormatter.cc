// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/DateFormatter.h"

#include <glib.h>

#include <limits>
#include <memory>
#include <stdexcept>

namespace hoist {
namespace {

constexpr std::int32_t kNanosecondsOfMillisecond = 1'000'000;

struct Field {
  std::string_view unicode;
  std::string_view glib;
};
constexpr Field kFields[] = {
    {"yyyy", "%Y"}, {"MM", "%m"}, {"dd", "%d"}, {"HH", "%H"},
    {"mm", "%M"},   {"ss", "%S"}, {"Z", "%z"},
};
constexpr std::string_view kMilliseconds = "SSS";

std::string_view glibField(std::string_view field) {
  for (const Field& known : kFields) {
    if (known.unicode == field) return known.glib;
  }
  throw std::invalid_argument("unknown date field " + std::string(field));
}

std::string formatted(GDateTime* time, const std::string& format) {
  std::unique_ptr<gchar, void (*)(gpointer)> text(g_date_time_format(time, format.c_str()), g_free);
  return text ? std::string(text.get()) : std::string();
}

}  // namespace

DateFormatter::DateFormatter(std::string_view pattern)
    : last_{std::numeric_limits<std::int64_t>::min(), {}, {}} {
  while (!pattern.empty()) {
    char letter = pattern.front();
    std::size_t length = std::min(pattern.find_first_not_of(letter), pattern.size());
    std::string_view field = pattern.substr(0, length);
    pattern.remove_prefix(length);
    std::string& format = hasMilliseconds_ ? formatAfter_ : formatBefore_;
    if (field == kMilliseconds && !hasMilliseconds_) {
      hasMilliseconds_ = true;
    } else if (g_ascii_isalpha(letter)) {
      format += glibField(field);
    } else {
      for (char literal : field) format += literal == '%' ? "%%" : std::string(1, literal);
    }
  }
}

std::string DateFormatter::stringFromDate(Date date) const {
  std::string text;
  appendDate(date, text);
  return text;
}

void DateFormatter::appendDate(Date date, std::string& text) const {
  {
    SpinLockHolder lock(lock_);
    if (last_.second == date.seconds()) return append(last_, date, text);
  }
  Second made = textOfSecond(date.seconds());
  append(made, date, text);
  SpinLockHolder lock(lock_);
  last_ = std::move(made);
}

DateFormatter::Second DateFormatter::textOfSecond(std::int64_t second) const {
  GDateTime* time = g_date_time_new_from_unix_local(second);
  if (!time) return {second, std::to_string(second), {}};
  Second made{second, formatted(time, formatBefore_), formatted(time, formatAfter_)};
  g_date_time_unref(time);
  return made;
}

void DateFormatter::append(const Second& second, Date date, std::string& text) const {
  text += second.before;
  if (hasMilliseconds_) {
    int milliseconds = date.nanoseconds() / kNanosecondsOfMillisecond;
    const char digits[] = {static_cast<char>('0' + milliseconds / 100),
                           static_cast<char>('0' + milliseconds / 10 % 10),
                           static_cast<char>('0' + milliseconds % 10)};
    text.append(digits, sizeof digits);
  }
  text += second.after;
}

}  // namespace hoist
