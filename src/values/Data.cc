// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/Data.h"

#include <algorithm>

namespace hoist {

Data::Data(std::vector<std::uint8_t> bytes)
    : bytes_(std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes))) {}

Data::Data(std::span<const std::uint8_t> bytes)
    : Data(std::vector<std::uint8_t>(bytes.begin(), bytes.end())) {}

Data Data::fromString(std::string_view text) {
  return Data(std::vector<std::uint8_t>(text.begin(), text.end()));
}

std::span<const std::uint8_t> Data::bytes() const {
  return bytes_ ? std::span<const std::uint8_t>(*bytes_) : std::span<const std::uint8_t>();
}

std::string_view Data::view() const {
  return {reinterpret_cast<const char*>(data()), size()};
}

std::string Data::description() const {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "<";
  text.reserve(2 + 2 * size());
  for (std::uint8_t byte : bytes()) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  text += '>';
  return text;
}

bool operator==(const Data& a, const Data& b) {
  return a.bytes_ == b.bytes_ || std::ranges::equal(a.bytes(), b.bytes());
}

}  // namespace hoist
