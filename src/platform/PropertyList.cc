// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/PropertyList.h"

#include "platform/PropertyListCheck.h"
#include "platform/PropertyListNode.h"

namespace hoist::platform {
namespace {

Value valueFromNode(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_ARRAY: {
      Array array;
      forEachElement(node, [&](plist_t element) { array.push_back(valueFromNode(element)); });
      return Value(std::move(array));
    }
    case PLIST_DICT: {
      Dictionary dictionary;
      forEachEntry(node, [&](std::string key, plist_t value) {
        dictionary.insert_or_assign(std::move(key), valueFromNode(value));
      });
      return Value(std::move(dictionary));
    }
    default: {
      auto leaf = leafFromNode(node);
      if (!leaf) throw PropertyListError("a property list with references of a keyed archive");
      return *leaf;
    }
  }
}

PropertyListNode nodeFromValue(const Value& value, PropertyListFormat format, unsigned depth) {
  if (depth > kMaximumPropertyListDepth) throw PropertyListError("nested too deep");
  if (const Array* array = value.array()) {
    PropertyListNode node(plist_new_array());
    for (const Value& element : *array) {
      plist_array_append_item(node.get(), nodeFromValue(element, format, depth + 1).release());
    }
    return node;
  }
  if (const Dictionary* dictionary = value.dictionary()) {
    PropertyListNode node(plist_new_dict());
    for (const auto& [key, entry] : *dictionary) {
      plist_dict_set_item(node.get(), writableText(key).c_str(),
                          nodeFromValue(entry, format, depth + 1).release());
    }
    return node;
  }
  PropertyListNode node(nodeFromLeaf(value, format));
  if (!node) throw PropertyListError(value.className() + " has no place in a property list");
  return node;
}

}  // namespace

Value propertyListFromData(std::span<const std::uint8_t> bytes) {
  return valueFromNode(parsePropertyList(bytes).get());
}

Data dataFromPropertyList(const Value& value, PropertyListFormat format) {
  return writePropertyList(nodeFromValue(value, format, 0).get(), format);
}

}  // namespace hoist::platform
