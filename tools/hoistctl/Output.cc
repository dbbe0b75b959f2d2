// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/Output.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "exceptions/KLException.h"
#include "platform/CharacterSets.h"
#include "platform/Utf8.h"

namespace hoist::ctl {
namespace {

constexpr std::string_view kGap = "  ";

// Of characters, not bytes.
std::size_t widthOf(std::string_view text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

}  // namespace

void printJson(const Json& json) {
  fmt::print("{}\n", json.dump(2, ' ', false, Json::error_handler_t::replace));
}

void printToError(std::string_view text) noexcept {
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
}

std::string_view fitting(std::string_view text, std::size_t column) {
  winsize size{};
  std::size_t columns =
      ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
  // The last one stays free: some terminals wrap as soon as it is written.
  return cutUTF8(text, columns > column + 1 ? columns - column - 1 : 0);
}

std::string reasonOf(const Exception& exception) {
  auto cause = exception.userInfo().find(detail_key::ErrDescription);
  if (cause == exception.userInfo().end()) return exception.what();
  return fmt::format("{}: {}", exception.what(), cause->second.description());
}

std::string shown(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    auto before = bytes;
    char32_t character = takeCharacter(bytes);
    auto encoded = before.substr(0, before.size() - bytes.size());
    bool isForeign = character == kReplacementCharacter && encoded.size() == 1;
    if (isForeign || isControl(character) || isNewline(character)) {
      for (char c : encoded) text += fmt::format("\\{:03o}", static_cast<unsigned char>(c));
    } else if (character == U'\\') {
      text += "\\\\";
    } else {
      text += encoded;
    }
  }
  return text;
}

void Table::print() const {
  std::vector<std::size_t> widths;
  std::vector<std::string> titles;
  for (const auto& column : columns_) {
    titles.push_back(column.title);
    widths.push_back(widthOf(column.title));
  }
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], widthOf(row[i]));
  }
  bool hasTitles = std::ranges::any_of(titles, [](auto& title) { return !title.empty(); });
  if (hasTitles) printRow(titles, widths);
  for (const auto& row : rows_) printRow(row, widths);
}

void Table::printRow(const std::vector<std::string>& row,
                     const std::vector<std::size_t>& widths) const {
  std::string line;
  for (std::size_t i = 0; i < row.size(); ++i) {
    std::string padding(widths[i] - widthOf(row[i]), ' ');
    bool isLast = i + 1 == row.size();
    if (i > 0) line += kGap;
    if (columns_[i].align == Align::Right) line += padding;
    line += row[i];
    if (columns_[i].align == Align::Left && !isLast) line += padding;
  }
  fmt::print("{}\n", line);
}

std::string sizeText(std::uint64_t bytes) {
  constexpr std::string_view kUnits = " KMGTPE";
  auto size = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (size >= 1024 && unit + 1 < kUnits.size()) {
    size /= 1024;
    ++unit;
  }
  if (unit == 0) return fmt::format("{}", bytes);
  return fmt::format("{:.{}f}{}", size, size < 9.95 ? 1 : 0, kUnits[unit]);
}

}  // namespace hoist::ctl
