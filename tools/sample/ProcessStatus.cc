// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/ProcessStatus.h"

#include <algorithm>
#include <charconv>

namespace hoist::sample {
namespace {

// Takes the next word off the front.
std::string_view nextWord(std::string_view& rest) {
  rest.remove_prefix(std::min(rest.find_first_not_of(" \n"), rest.size()));
  std::string_view word = rest.substr(0, rest.find_first_of(" \n"));
  rest.remove_prefix(word.size());
  return word;
}

template <class Number>
bool parseNumber(std::string_view word, Number& number) {
  auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  return error == std::errc() && end == word.data() + word.size();
}

}  // namespace

std::optional<ProcessStatus> parseProcessStatus(std::string_view line) {
  // The last closing parenthesis ends the name: a program may call itself "a) R 1 (".
  std::size_t open = line.find('(');
  std::size_t close = line.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos || close < open)
    return std::nullopt;
  ProcessStatus status;
  status.name = line.substr(open + 1, close - open - 1);
  std::string_view rest = line.substr(close + 1);
  std::string_view state = nextWord(rest);
  if (state.size() != 1 || !parseNumber(nextWord(rest), status.parent)) return std::nullopt;
  status.state = state[0];
  for (int field = 5; field <= 22; ++field) {
    std::string_view word = nextWord(rest);
    if (field == 9 && !parseNumber(word, status.flags)) return std::nullopt;
    if (field == 22 && !parseNumber(word, status.startTicks)) return std::nullopt;
  }
  return status;
}

}  // namespace hoist::sample
