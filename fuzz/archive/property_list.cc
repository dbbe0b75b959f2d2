// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Any bytes as a property list. What is read must be writable in both forms, and the second reading
// must say what the first one said: nothing is lost after it has been read once.
#include <cstdlib>
#include <optional>

#include "platform/PropertyList.h"

namespace {

using namespace hoist;
using namespace hoist::platform;

std::optional<Value> read(std::span<const std::uint8_t> bytes) {
  try {
    return propertyListFromData(bytes);
  } catch (const PropertyListError&) {
    return std::nullopt;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  auto value = read({bytes, size});
  if (!value) return 0;
  for (auto form : {PropertyListFormat::XML, PropertyListFormat::Binary}) {
    auto once = read(dataFromPropertyList(*value, form).bytes());
    if (!once) std::abort();
    auto twice = read(dataFromPropertyList(*once, form).bytes());
    // Texts, because NaN is equal to nothing.
    if (!twice || twice->description() != once->description()) std::abort();
  }
  return 0;
}
