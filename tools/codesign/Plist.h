// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <plist/plist.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

namespace hoist::codesign {

// The property-list library's nodes and texts as C++ holds them.

struct PlistFree {
  void operator()(void* node) const { plist_free(node); }
};
// An outermost node, with all that hangs on it.
using Plist = std::unique_ptr<void, PlistFree>;

struct CFree {
  void operator()(void* memory) const { std::free(memory); }
};

// The text of a node; none when it is of another kind.
inline std::optional<std::string> textOf(plist_t node) {
  if (!PLIST_IS_STRING(node)) return {};
  char* text = nullptr;
  plist_get_string_val(node, &text);
  const std::unique_ptr<char, CFree> owner(text);
  if (!text) return {};
  return std::string(text);
}

// Calls use(key, value) for each entry of a dictionary, in its order.
template <class Use>
void forEachEntry(plist_t dictionary, Use&& use) {
  plist_dict_iter position = nullptr;
  plist_dict_new_iter(dictionary, &position);
  const std::unique_ptr<void, CFree> positionOwner(position);
  for (;;) {
    char* key = nullptr;
    plist_t value = nullptr;
    plist_dict_next_item(dictionary, position, &key, &value);
    const std::unique_ptr<char, CFree> keyOwner(key);
    if (!value || !key) return;
    use(std::string(key), value);
  }
}

}  // namespace hoist::codesign
