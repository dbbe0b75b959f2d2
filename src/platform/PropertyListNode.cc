// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/PropertyListNode.h"

#include <glib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>

#include "platform/PropertyListCheck.h"

// libplist hands a date out, and takes it in, as 32-bit seconds around 2001, which ends in 2069.
// Its XML text has no such limit, so the whole seconds of a date go through that, and the 32-bit
// form serves only for what is below a second.

namespace hoist::platform {
namespace {

constexpr std::int64_t kEpoch2001 = 978'307'200;           // in seconds since 1970
constexpr std::int64_t kEarliestSecond = -62'135'596'800;  // 0001-01-01T00:00:00Z
constexpr std::int64_t kLatestSecond = 253'402'300'799;    // 9999-12-31T23:59:59Z
constexpr std::string_view kBinaryMark = "bplist";

using CString = std::unique_ptr<char, decltype(&std::free)>;

bool fitsIn32Bits(std::int64_t value) {
  using Limits = std::numeric_limits<std::int32_t>;
  return value > Limits::min() && value < Limits::max();
}

std::string isoText(std::int64_t seconds) {
  using namespace std::chrono;
  sys_seconds instant{std::chrono::seconds(seconds)};
  auto day = floor<days>(instant);
  year_month_day date{day};
  hh_mm_ss time{instant - day};
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count()));
  return text;
}

std::optional<std::int64_t> secondsOfISOText(std::string_view xml) {
  constexpr std::string_view kTag = "<date>";
  auto at = xml.find(kTag);
  if (at == xml.npos) return std::nullopt;
  int year, month, day, hour, minute, second;
  std::string text(xml.substr(at + kTag.size(), 32));
  if (std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%dZ", &year, &month, &day, &hour, &minute,
                  &second) != 6) {
    return std::nullopt;
  }
  using namespace std::chrono;
  sys_days days = std::chrono::year(year) / month / day;
  return days.time_since_epoch().count() * std::int64_t{86'400} + hour * 3'600 + minute * 60 +
         second;
}

std::string xmlText(plist_t node) {
  char* xml = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(node, &xml, &length);
  std::unique_ptr<char, decltype(&plist_to_xml_free)> owner(xml, &plist_to_xml_free);
  return xml ? std::string(xml, length) : std::string();
}

Date dateOfNode(plist_t node) {
  // Whole seconds, cut towards the past before 1970 and towards 1970 after it.
  auto seconds = secondsOfISOText(xmlText(node));
  if (!seconds) throw PropertyListError("a date that libplist cannot write");
  if (!fitsIn32Bits(*seconds - kEpoch2001)) return Date(*seconds);
  std::int32_t since2001 = 0;
  std::int32_t microseconds = 0;  // without their sign
  plist_get_date_val(node, &since2001, &microseconds);
  bool before = since2001 < 0 || (since2001 == 0 && *seconds < kEpoch2001);
  return Date(kEpoch2001 + since2001, (before ? -1'000LL : 1'000LL) * microseconds);
}

plist_t nodeFromDate(Date date, PropertyListFormat format) {
  std::int64_t seconds = std::clamp(date.seconds(), kEarliestSecond, kLatestSecond);
  bool exact = seconds == date.seconds() && fitsIn32Bits(seconds - kEpoch2001);
  if (format == PropertyListFormat::Binary && exact) {
    return plist_new_date(static_cast<std::int32_t>(seconds - kEpoch2001),
                          date.nanoseconds() / 1'000);
  }
  std::string xml = "<plist version=\"1.0\"><date>" + isoText(seconds) + "</date></plist>";
  plist_t node = nullptr;
  plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &node);
  return node;
}

bool isWritable(gunichar character) {
  if (character < 0x20) return character == '\t' || character == '\n' || character == '\r';
  return character != 0xFFFE && character != 0xFFFF;
}

// NUL counts as invalid too.
std::string validText(std::string_view bytes) {
  auto size = static_cast<gssize>(bytes.size());
  if (size == 0 || g_utf8_validate(bytes.data(), size, nullptr)) return std::string(bytes);
  std::unique_ptr<gchar, decltype(&g_free)> valid(g_utf8_make_valid(bytes.data(), size), &g_free);
  return valid.get();
}

}  // namespace

PropertyListNode parsePropertyList(std::span<const std::uint8_t> bytes) {
  std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  auto size = static_cast<std::uint32_t>(bytes.size());
  plist_t node = nullptr;
  if (text.starts_with(kBinaryMark)) {
    checkBinaryPropertyList(bytes);
    plist_from_bin(text.data(), size, &node);
  } else {
    checkXMLPropertyList(bytes);
    plist_from_xml(text.data(), size, &node);
  }
  if (!node) throw PropertyListError("not a property list");
  return PropertyListNode(node);
}

Data writePropertyList(plist_t node, PropertyListFormat format) {
  char* text = nullptr;
  std::uint32_t length = 0;
  if (format == PropertyListFormat::XML) {
    plist_to_xml(node, &text, &length);
  } else {
    plist_to_bin(node, &text, &length);
  }
  CString owner(text, &std::free);
  if (!text) throw PropertyListError("libplist cannot write this property list");
  auto begin = reinterpret_cast<const std::uint8_t*>(text);
  return Data(std::vector<std::uint8_t>(begin, begin + length));
}

std::optional<Value> leafFromNode(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      plist_get_bool_val(node, &value);
      return Value(value != 0);
    }
    case PLIST_UINT: {
      std::uint64_t value = 0;
      plist_get_uint_val(node, &value);
      return Value(value);
    }
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(node, &value);
      return Value(value);
    }
    case PLIST_STRING:
      return Value(textOfNode(node));
    case PLIST_DATE:
      return Value(dateOfNode(node));
    case PLIST_DATA: {
      std::uint64_t length = 0;
      auto bytes = reinterpret_cast<const std::uint8_t*>(plist_get_data_ptr(node, &length));
      if (!bytes) length = 0;
      return Value(Data(std::vector<std::uint8_t>(bytes, bytes + length)));
    }
    default:
      return std::nullopt;
  }
}

plist_t nodeFromLeaf(const Value& value, PropertyListFormat format) {
  switch (value.kind()) {
    case Value::Kind::Boolean:
      return plist_new_bool(*value.boolean());
    case Value::Kind::Integer:
      return plist_new_uint(static_cast<std::uint64_t>(*value.integer()));
    case Value::Kind::Double:
      return plist_new_real(*value.real());
    case Value::Kind::String:
      return plist_new_string(writableText(*value.string()).c_str());
    case Value::Kind::Data: {
      std::string_view bytes = value.data()->view();
      return plist_new_data(bytes.empty() ? "" : bytes.data(), bytes.size());
    }
    case Value::Kind::Date:
      return nodeFromDate(*value.date(), format);
    default:
      return nullptr;
  }
}

std::string writableText(std::string_view text) {
  std::string valid = validText(text);
  std::string result;
  result.reserve(valid.size());
  for (const char* at = valid.c_str(); *at;) {
    const char* next = g_utf8_next_char(at);
    if (isWritable(g_utf8_get_char(at))) {
      result.append(at, next);
    } else {
      result += "\uFFFD";
    }
    at = next;
  }
  return result;
}

std::string textOfNode(plist_t node) {
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return text ? validText({text, length}) : std::string();
}

}  // namespace hoist::platform
