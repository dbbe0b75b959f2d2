// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace hoist {

// Immutable bytes, shared: a copy costs a reference count. Safe to use from any thread.
class Data {
 public:
  Data() = default;
  explicit Data(std::vector<std::uint8_t> bytes);
  explicit Data(std::span<const std::uint8_t> bytes);
  static Data fromString(std::string_view text);

  const std::uint8_t* data() const { return bytes().data(); }
  std::size_t size() const { return bytes_ ? bytes_->size() : 0; }
  bool empty() const { return size() == 0; }
  std::span<const std::uint8_t> bytes() const;
  std::string_view view() const;

  // "<" hexadecimal digits ">".
  std::string description() const;

  friend bool operator==(const Data& a, const Data& b);

 private:
  std::shared_ptr<const std::vector<std::uint8_t>> bytes_;
};

}  // namespace hoist
