// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/Seal.h"

#include <fmt/format.h>

#include <charconv>
#include <initializer_list>

#include "codesign/Limits.h"
#include "codesign/PathText.h"
#include "codesign/Problem.h"
#include "platform/PropertyList.h"

namespace hoist::codesign {
namespace {

// Changes whenever an older reader would misunderstand a seal.
constexpr std::int64_t kVersion = 1;

[[noreturn]] void refuse(std::string_view reason) {
  throw Problem(kSealPath, reason);
}

// Writing.

Value valueOfMode(unsigned mode) {
  return fmt::format("{:04o}", mode);
}

Value valueOfFile(const SealedFile& file) {
  return Dictionary{{"mode", valueOfMode(file.mode)},
                    {"sha256", platform::hexadecimal(file.digest)},
                    {"size", file.size}};
}

Value valueOfTarget(const std::string& target) {
  return textOfPath(target);
}

template <class Table, class ValueOf>
Value valueOfTable(const Table& table, ValueOf&& valueOf) {
  Dictionary entries;
  for (const auto& [path, entry] : table) entries.emplace(textOfPath(path), valueOf(entry));
  return entries;
}

// Reading.

const Dictionary& dictionaryOf(const Value& value) {
  const auto* dictionary = value.dictionary();
  if (!dictionary) refuse("holds something else than a dictionary where one belongs");
  return *dictionary;
}

// A dictionary with these keys and no others.
const Dictionary& dictionaryOf(const Value& value, std::initializer_list<const char*> keys) {
  const auto& dictionary = dictionaryOf(value);
  for (const char* key : keys) {
    if (!dictionary.contains(key)) refuse(fmt::format("lacks the key {}", key));
  }
  if (dictionary.size() != keys.size()) refuse("holds an unknown key");
  return dictionary;
}

const std::string& textOf(const Value& value) {
  const auto* text = value.string();
  if (!text) refuse("holds something else than a text where one belongs");
  return *text;
}

// A relative path without empty, "." or ".." components.
bool isPlainPath(std::string_view path) {
  while (true) {
    const auto slash = path.find('/');
    const auto component = path.substr(0, slash);
    if (component.empty() || component == "." || component == "..") return false;
    if (slash == std::string_view::npos) return true;
    path.remove_prefix(slash + 1);
  }
}

std::string pathOf(const std::string& text) {
  auto path = pathOfText(text);
  if (!path || !isPlainPath(*path) || *path == kSealPath || *path == kSignaturePath ||
      path->find('\0') != std::string::npos) {
    refuse("holds a path that cannot be sealed");
  }
  return *std::move(path);
}

unsigned modeOf(const Value& value) {
  const auto& text = textOf(value);
  unsigned mode = 0;
  const auto end = text.data() + text.size();
  const bool isOctal = std::from_chars(text.data(), end, mode, 8).ptr == end;
  if (!isOctal || text.size() != 4 || (mode & ~kSealedModeBits) != 0) {
    refuse("holds a mode that is not four octal digits");
  }
  return mode;
}

platform::SHA256Digest digestOf(const Value& value) {
  const auto& text = textOf(value);
  platform::SHA256Digest digest{};
  if (text.size() != 2 * digest.size()) refuse("holds a digest of another length");
  for (std::size_t i = 0; i < digest.size(); ++i) {
    std::from_chars(text.data() + 2 * i, text.data() + 2 * i + 2, digest[i], 16);
  }
  if (platform::hexadecimal(digest) != text) refuse("holds a digest that is not hexadecimal");
  return digest;
}

std::uint64_t sizeOf(const Value& value) {
  const auto size = value.integer();
  if (!size || *size < 0) refuse("holds a size that is no number of bytes");
  return static_cast<std::uint64_t>(*size);
}

SealedFile fileOf(const Value& value) {
  const auto& file = dictionaryOf(value, {"mode", "sha256", "size"});
  return {digestOf(file.at("sha256")), sizeOf(file.at("size")), modeOf(file.at("mode"))};
}

std::string targetOf(const Value& value) {
  auto target = pathOfText(textOf(value));
  if (!target || target->empty()) refuse("holds a link without a target");
  return *std::move(target);
}

template <class Entry>
std::map<std::string, Entry> tableOf(const Value& value, Entry (*entryOf)(const Value&)) {
  std::map<std::string, Entry> table;
  for (const auto& [text, entry] : dictionaryOf(value)) {
    table.emplace(pathOf(text), entryOf(entry));
  }
  return table;
}

Value parse(std::string_view text) {
  if (text.size() > kMaximumSealBytes) refuse("is too large");
  if (!text.starts_with("<?xml")) refuse("is not an XML property list");
  try {
    return platform::propertyListFromData(
        {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  } catch (const platform::PropertyListError& error) {
    refuse(error.what());
  }
}

}  // namespace

std::string textOfSeal(const Seal& seal) {
  const Value value = Dictionary{{"files", valueOfTable(seal.files, valueOfFile)},
                                 {"folders", valueOfTable(seal.folders, valueOfMode)},
                                 {"links", valueOfTable(seal.links, valueOfTarget)},
                                 {"version", kVersion}};
  return std::string(
      platform::dataFromPropertyList(value, platform::PropertyListFormat::XML).view());
}

Seal sealOfText(std::string_view text) {
  const auto value = parse(text);
  const auto version = dictionaryOf(value).find("version");
  if (version != dictionaryOf(value).end() && version->second != Value(kVersion)) {
    refuse("is of a version that is not known here");
  }
  const auto& seal = dictionaryOf(value, {"files", "folders", "links", "version"});
  return {tableOf(seal.at("files"), fileOf), tableOf(seal.at("folders"), modeOf),
          tableOf(seal.at("links"), targetOf)};
}

}  // namespace hoist::codesign
