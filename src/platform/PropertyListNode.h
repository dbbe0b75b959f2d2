// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <plist/plist.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "platform/PropertyList.h"
#include "values/Value.h"

// The seam to libplist, for the property lists and the keyed archives. Nothing else includes it.
namespace hoist::platform {

struct PropertyListFree {
  void operator()(void* node) const { plist_free(node); }
};
// A whole tree. Nodes inside it are borrowed as plist_t.
using PropertyListNode = std::unique_ptr<void, PropertyListFree>;

// Checks the bytes and hands them to libplist. Throws PropertyListError.
PropertyListNode parsePropertyList(std::span<const std::uint8_t> bytes);
Data writePropertyList(plist_t node, PropertyListFormat format);

// A leaf as a value; nothing for a container, a reference of a keyed archive, or nothing.
std::optional<Value> leafFromNode(plist_t node);
// A string, number, boolean, data or date as a new node that the caller owns; null for any other.
plist_t nodeFromLeaf(const Value& value, PropertyListFormat format);

// Text as libplist can write it and every reader can read it.
std::string writableText(std::string_view text);
// The bytes of a string node.
std::string textOfNode(plist_t node);

// Calls use(key, node) for each entry of a dictionary, in its order.
template <class Use>
void forEachEntry(plist_t dictionary, Use&& use) {
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(dictionary, &iterator);
  std::unique_ptr<void, decltype(&std::free)> owner(iterator, &std::free);
  for (;;) {
    char* key = nullptr;
    plist_t node = nullptr;
    plist_dict_next_item(dictionary, iterator, &key, &node);
    std::unique_ptr<char, decltype(&std::free)> keyOwner(key, &std::free);
    if (!node) return;
    use(std::string(key ? key : ""), node);
  }
}

// Calls use(node) for each element of an array, in its order.
template <class Use>
void forEachElement(plist_t array, Use&& use) {
  plist_array_iter iterator = nullptr;
  plist_array_new_iter(array, &iterator);
  std::unique_ptr<void, decltype(&std::free)> owner(iterator, &std::free);
  for (;;) {
    plist_t node = nullptr;
    plist_array_next_item(array, iterator, &node);
    if (!node) return;
    use(node);
  }
}

}  // namespace hoist::platform
