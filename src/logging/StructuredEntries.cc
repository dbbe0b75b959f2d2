// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Entries of several lines: exceptions, values, blocks of bytes. Texts are made inside the
// messages' functions, so that an entry whose lines are not written costs its numbering only.

#include <fmt/format.h>

#include <limits>
#include <span>

#include "exceptions/KLException.h"
#include "logging/Logger.h"
#include "platform/CharacterSets.h"
#include "platform/Symbols.h"
#include "platform/Utf8.h"

namespace hoist {
namespace {

constexpr std::size_t kRow = 64;
// Capacities of the two columns of a row.
constexpr std::size_t kHexColumn = 232;
constexpr std::size_t kCharacterColumn = 81;

// A reason is one line whatever it holds. U+FFFD, which stands for a byte that is no character, is
// kept.
std::string asOneLine(std::string_view reason) {
  std::string line;
  line.reserve(reason.size());
  while (!reason.empty()) {
    std::string_view rest = reason;
    char32_t character = takeCharacter(rest);
    if (isNewline(character)) {
      line += " | ";
    } else if (isControl(character) || isIllegal(character)) {
      line += '?';
    } else {
      line += reason.substr(0, reason.size() - rest.size());
    }
    reason = rest;
  }
  return line;
}

Classification classificationOfEntry(const std::string& key, const ClassificationMap* map,
                                     Classification otherwise) {
  if (key.starts_with('.')) return classification::Subrosa;
  if (!map) return otherwise;
  auto found = map->find(key);
  return found == map->end() ? otherwise : found->second;
}

// The length that is shown of each end, nothing when the whole block is.
std::optional<std::size_t> shownOfEachEnd(std::size_t length, std::size_t tail) {
  // A tail that long cannot leave anything out, whatever its exact value.
  if (tail == 0 || tail > length) return std::nullopt;
  std::size_t rounded = (tail + kRow - 1) / kRow * kRow;
  bool leavesOut = rounded <= (std::numeric_limits<std::size_t>::max() - kRow) / 2 &&
                   length > 2 * rounded + kRow;
  return leavesOut ? std::optional(rounded) : std::nullopt;
}

std::string rowText(std::span<const std::uint8_t> bytes, std::size_t offset) {
  std::string text;
  text.reserve(kHexColumn + kCharacterColumn);
  fmt::format_to(std::back_inserter(text), "{:06x}: ", offset);
  for (auto byte : bytes) fmt::format_to(std::back_inserter(text), "{:02x}", byte);
  text += " |";
  for (auto byte : bytes) text += byte < 32 || byte > 126 ? '_' : static_cast<char>(byte);
  return text += '|';
}

}  // namespace

Ref<LogLineIdentifier> Logger::logMapInLineException(Classification classification,
                                                     const ClassificationMap* map,
                                                     const Ref<LogLineIdentifier>& parent,
                                                     const Exception& exception) {
  {
    auto last = exception.state();
    SpinLockHolder lock(lock_);
    // The one before is let go after the lock.
    lastException_.swap(last);
    lock.unlock();
  }
  if (classification == classification::Preferred) {
    classification = KLException::preferredLogClassForException(exception);
  }
  auto line = logInLineMessage(classification, parent,
                               [&] { return asOneLine(describe(exception.reason())); });
  if (!line) return nullptr;
  logInLineKeyValue(classification::Subrosa, line, ".Exception", exception.name());
  logMapInLineDictionary(classification::Details, map, line, exception.userInfo());
  logBacktrace(line, exception.callStackReturnAddresses());
  return line;
}

bool Logger::isNewException(const Exception& exception) const {
  SpinLockHolder lock(lock_);
  return lastException_ != exception.state();
}

void Logger::logBacktrace(const Ref<LogLineIdentifier>& line,
                          const std::vector<std::uintptr_t>& addresses) {
  if (addresses.empty()) return;
  auto entry = backtraces_.tag(addresses);
  auto frames = logInLineMessage(classification::Debug, line,
                                 [&] { return fmt::format("backtrace {:x}", entry.tag); });
  if (!entry.isNew) return;
  for (auto address : addresses) {
    logInLineMessage(classification::Debug, frames,
                     [&] { return describeAddress(address) + ": " + describeSymbol(address); });
  }
}

void Logger::logInLineKeyData(Classification classification, const Ref<LogLineIdentifier>& parent,
                              std::string_view key, const Data& data, std::size_t tail) {
  auto header = logInLineMessage(classification, parent,
                                 [&] { return fmt::format("{}: {} bytes", key, data.size()); });
  auto bytes = data.bytes();
  auto shown = shownOfEachEnd(bytes.size(), tail);
  if (!shown) return logRows(header, bytes, 0);
  std::size_t leftOut = bytes.size() - 2 * *shown;
  logRows(header, bytes.first(*shown), 0);
  logInLineMessage(classification::Details, header,
                   [&] { return fmt::format("... {} more bytes ...", leftOut); });
  logRows(header, bytes.last(*shown), bytes.size() - *shown);
}

void Logger::logRows(const Ref<LogLineIdentifier>& header, std::span<const std::uint8_t> bytes,
                     std::size_t offset) {
  for (std::size_t at = 0; at < bytes.size(); at += kRow) {
    auto row = bytes.subspan(at, std::min(kRow, bytes.size() - at));
    logInLineMessage(classification::Details, header, [&] { return rowText(row, offset + at); });
  }
}

void Logger::logMapInLineDictionary(Classification classification, const ClassificationMap* map,
                                    const Ref<LogLineIdentifier>& parent,
                                    const Dictionary& dictionary) {
  for (const auto& [key, value] : dictionary) {
    logInLineKeyValue(classificationOfEntry(key, map, classification), parent,
                      key == ".Help" ? "help" : key, value);
  }
}

Ref<LogLineIdentifier> Logger::logInLineKeyValue(Classification classification,
                                                 const Ref<LogLineIdentifier>& parent,
                                                 std::string_view key,
                                                 const std::optional<Value>& value) {
  auto* dictionary = value ? value->dictionary() : nullptr;
  auto* array = value ? value->array() : nullptr;
  if (!dictionary && !array) {
    return logInLineMessage(classification, parent,
                            [&] { return std::string(key).append(": ").append(describe(value)); });
  }
  auto line = logInLineMessage(classification, parent, [&] { return std::string(key) + ":"; });
  if (dictionary) {
    logMapInLineDictionary(classification, nullptr, line, *dictionary);
  } else {
    for (std::size_t index = 0; index < array->size(); ++index) {
      logInLineKeyValue(classification, line, fmt::format("[{}]", index), (*array)[index]);
    }
  }
  return line;
}

void LogStackTrace(std::string_view label) {
  try {
    Exception(Exception::kGenericException, "stack trace: " + std::string(label)).raise();
  } catch (const Exception& exception) {
    Logger::logException(classification::Debug, exception);
  }
}

}  // namespace hoist
