// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace hoist {
class Exception;
}

namespace hoist::ctl {

using Json = nlohmann::ordered_json;

// On the standard output. Bytes that are no UTF-8 are shown as U+FFFD: the output stays JSON.
void printJson(const Json& json);

// On the standard error, at once and as far as it takes it: a program is not ended by a reader that
// has gone. Never throws.
void printToError(std::string_view text) noexcept;

// The longest beginning of the text that fits into a line of the terminal behind the standard
// error, after as many columns: a line that wraps could not be written over.
std::string_view fitting(std::string_view text, std::size_t column = 0);

// What was tried, and what the system said to it.
std::string reasonOf(const Exception& exception);

// Bytes as a terminal may have them: control characters and bytes that are no UTF-8 as a backslash
// and three octal digits, a backslash twice.
std::string shown(std::string_view bytes);

enum class Align { Left, Right };

// Rows of texts under their titles, in columns as wide as they need to be.
class Table {
 public:
  struct Column {
    std::string title;
    Align align = Align::Left;
  };
  // Without titles, no line of titles is printed.
  explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}
  // As many texts as there are columns.
  void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  void print() const;

 private:
  void printRow(const std::vector<std::string>& row, const std::vector<std::size_t>& widths) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

// "512", "1.5K", "20G" ...: bytes for people, in steps of 1024.
std::string sizeText(std::uint64_t bytes);

}  // namespace hoist::ctl
