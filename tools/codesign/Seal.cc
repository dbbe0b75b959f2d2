// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/Seal.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <functional>

#include "codesign/Limits.h"
#include "codesign/PathText.h"
#include "codesign/Plist.h"
#include "codesign/Problem.h"
#include "codesign/SealShape.h"

namespace hoist::codesign {
namespace {

// Changes whenever an older reader would misunderstand a seal.
constexpr std::uint64_t kVersion = 1;

[[noreturn]] void refuse(std::string_view reason) {
  throw Problem(kSealPath, reason);
}

// Writing.

plist_t textNode(const std::string& text) {
  return plist_new_string(text.c_str());
}

plist_t modeNode(unsigned mode) {
  return textNode(fmt::format("{:04o}", mode));
}

plist_t fileNode(const SealedFile& file) {
  plist_t node = plist_new_dict();
  plist_dict_set_item(node, "mode", modeNode(file.mode));
  plist_dict_set_item(node, "sha256", textNode(platform::hexadecimal(file.digest)));
  plist_dict_set_item(node, "size", plist_new_uint(file.size));
  return node;
}

template <class Table, class MakeNode>
plist_t tableNode(const Table& table, MakeNode&& makeNode) {
  plist_t node = plist_new_dict();
  for (const auto& [path, entry] : table) {
    plist_dict_set_item(node, textOfPath(path).c_str(), makeNode(entry));
  }
  return node;
}

// Reading.

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

std::string readPath(const std::string& text) {
  auto path = pathOfText(text);
  if (!path || !isPlainPath(*path) || *path == kSealPath || *path == kSignaturePath ||
      path->find('\0') != path->npos) {
    refuse("holds a path that cannot be sealed");
  }
  return *std::move(path);
}

unsigned readMode(plist_t node) {
  const auto text = textOf(node);
  unsigned mode = 0;
  if (!text || text->size() != 4) refuse("holds a mode that is no four octal digits");
  const auto end = text->data() + text->size();
  if (std::from_chars(text->data(), end, mode, 8).ptr != end || (mode & ~kSealedModeBits) != 0) {
    refuse("holds a mode that is no four octal digits");
  }
  return mode;
}

platform::SHA256Digest readDigest(plist_t node) {
  const auto text = textOf(node);
  platform::SHA256Digest digest{};
  if (!text || text->size() != 2 * digest.size()) refuse("holds a digest of another length");
  for (std::size_t i = 0; i < digest.size(); ++i) {
    std::from_chars(text->data() + 2 * i, text->data() + 2 * i + 2, digest[i], 16);
  }
  if (platform::hexadecimal(digest) != *text) refuse("holds a digest that is not hexadecimal");
  return digest;
}

std::uint64_t readInteger(plist_t node) {
  if (!PLIST_IS_UINT(node)) refuse("holds something else than an integer where one belongs");
  std::uint64_t value = 0;
  plist_get_uint_val(node, &value);
  return value;
}

// Calls the reader of each key once; every one of the keys must be there and no other.
using Readers = std::map<std::string, std::function<void(plist_t)>>;
void readDictionary(plist_t node, Readers readers) {
  if (!PLIST_IS_DICT(node)) refuse("holds something else than a dictionary where one belongs");
  forEachEntry(node, [&](const std::string& key, plist_t value) {
    const auto reader = readers.extract(key);
    if (reader.empty()) refuse("holds an unknown key");
    reader.mapped()(value);
  });
  if (!readers.empty()) refuse("lacks a key");
}

SealedFile readFile(plist_t node) {
  SealedFile file{};
  readDictionary(node, {{"mode", [&](plist_t value) { file.mode = readMode(value); }},
                        {"sha256", [&](plist_t value) { file.digest = readDigest(value); }},
                        {"size", [&](plist_t value) { file.size = readInteger(value); }}});
  return file;
}

std::string readTarget(plist_t node) {
  const auto text = textOf(node);
  auto target = text ? pathOfText(*text) : std::nullopt;
  if (!target || target->empty()) refuse("holds a link without a target");
  return *std::move(target);
}

template <class Entry>
void readTable(plist_t node, std::map<std::string, Entry>& table, Entry (*read)(plist_t)) {
  if (!PLIST_IS_DICT(node)) refuse("holds something else than a dictionary where one belongs");
  forEachEntry(node,
               [&](const std::string& key, plist_t value) { table[readPath(key)] = read(value); });
}

// Of the outermost dictionary, the tables, and the files' entries.
std::uint64_t numberOfKeys(const Seal& seal) {
  return 4 + seal.files.size() + seal.folders.size() + seal.links.size() + 3 * seal.files.size();
}

}  // namespace

std::string textOfSeal(const Seal& seal) {
  const Plist root(plist_new_dict());
  plist_dict_set_item(root.get(), "version", plist_new_uint(kVersion));
  plist_dict_set_item(root.get(), "files", tableNode(seal.files, fileNode));
  plist_dict_set_item(root.get(), "folders", tableNode(seal.folders, modeNode));
  plist_dict_set_item(root.get(), "links", tableNode(seal.links, [](const std::string& target) {
                        return textNode(textOfPath(target));
                      }));
  char* text = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(root.get(), &text, &length);
  const std::unique_ptr<char, CFree> owner(text);
  if (!text) throw Problem(kSealPath, "cannot be made");
  return {text, length};
}

Seal sealOfText(std::string_view text) {
  const auto keys = checkSealShape(text);
  plist_t node = nullptr;
  plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &node);
  const Plist root(node);
  Seal seal;
  readDictionary(root.get(),
                 {{"files", [&](plist_t value) { readTable(value, seal.files, readFile); }},
                  {"folders", [&](plist_t value) { readTable(value, seal.folders, readMode); }},
                  {"links", [&](plist_t value) { readTable(value, seal.links, readTarget); }},
                  {"version", [](plist_t value) {
                     if (readInteger(value) != kVersion)
                       refuse("is of a version that is not known here");
                   }}});
  // Of keys that are the same the library keeps one.
  if (keys != numberOfKeys(seal)) refuse("holds a key twice");
  return seal;
}

}  // namespace hoist::codesign
