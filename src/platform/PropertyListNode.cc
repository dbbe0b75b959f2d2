// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/PropertyListNode.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <bit>

#include "platform/PropertyListCheck.h"

// libplist hands a date out, and takes it in, as 32-bit seconds around 2001, which end in 2069.
// Inside it is a double, and the binary form of a date alone carries exactly that one: dates go in
// and out as such a list of one object.

namespace hoist::platform {
namespace {

constexpr std::int64_t kEpoch2001 = 978'307'200;                // in seconds since 1970
constexpr std::int64_t kLatestSecond = 253'402'300'799;         // 9999-12-31T23:59:59Z
constexpr std::int64_t kEarliestSecond = -62'135'596'800;       // 0001-01-01T00:00:00Z
constexpr std::int64_t kEarliestSecondInXML = -30'610'224'000;  // 1000: libplist pads no year
constexpr std::string_view kBinaryMark = "bplist";

// A binary property list whose one object is a date: header, marker, the double from its most
// significant byte on, the offset table, the trailer.
using DateList = std::array<std::uint8_t, 50>;
constexpr std::size_t kDateMarkerAt = 8;
constexpr std::size_t kDateAt = kDateMarkerAt + 1;
constexpr std::size_t kDateTableAt = kDateAt + 8;
constexpr std::uint8_t kDateMarker = 0x33;

using CString = std::unique_ptr<char, decltype(&std::free)>;

plist_t nodeFromSeconds2001(double seconds) {
  DateList list{'b', 'p', 'l', 'i', 's', 't', '0', '0', kDateMarker};
  auto bits = std::bit_cast<std::uint64_t>(seconds);
  for (int i = 0; i < 8; ++i) list[kDateAt + i] = static_cast<std::uint8_t>(bits >> (56 - 8 * i));
  list[kDateTableAt] = kDateMarkerAt;
  std::uint8_t* trailer = list.data() + kDateTableAt + 1;
  trailer[6] = trailer[7] = 1;  // sizes of an offset and of a reference
  trailer[15] = 1;              // objects
  trailer[31] = kDateTableAt;
  plist_t node = nullptr;
  plist_from_bin(reinterpret_cast<const char*>(list.data()), list.size(), &node);
  return node;
}

double seconds2001OfNode(plist_t node) {
  Data list = writePropertyList(node, PropertyListFormat::Binary);
  if (list.size() < kDateTableAt || list.data()[kDateMarkerAt] != kDateMarker) {
    throw PropertyListError("a date that libplist cannot write");
  }
  std::uint64_t bits = 0;
  for (int i = 0; i < 8; ++i) bits = bits << 8 | list.data()[kDateAt + i];
  return std::bit_cast<double>(bits);
}

plist_t nodeFromDate(Date date, PropertyListFormat format) {
  bool xml = format == PropertyListFormat::XML;
  Date earliest(xml ? kEarliestSecondInXML : kEarliestSecond);
  date = std::clamp(date, earliest, Date(kLatestSecond));
  if (xml) date = Date(date.seconds());
  return nodeFromSeconds2001(date.secondsSince(Date(kEpoch2001)));
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
      return Value(Date(kEpoch2001).plusSeconds(seconds2001OfNode(node)));
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
