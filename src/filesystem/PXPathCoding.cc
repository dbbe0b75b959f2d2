// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <cstring>

#include "filesystem/PXSubPath.h"
#include "values/ClassRegistry.h"

// The archived form of a path is its bytes, so that it leads back to the item whatever they are.

namespace hoist {
namespace {

constexpr const char* kPathKey = "path";

}  // namespace

void PXPath::encodeWithCoder(Encoder& encoder) const {
  auto bytes = cPath();
  std::span archived(reinterpret_cast<const std::uint8_t*>(bytes), std::strlen(bytes) + 1);
  if (encoder.isKeyed()) {
    encoder.encodeBytes(kPathKey, archived);
  } else {
    encoder.encodeBytes(archived);
  }
}

std::string PXPath::decodePath(Decoder& decoder) {
  auto bytes = decoder.isKeyed() ? decoder.decodeBytes(kPathKey) : decoder.decodeBytes();
  if (!bytes) throw DecodeError("a path without its bytes");
  return std::string(bytes->view());
}

void PXPath::registerClasses() {
  auto& registry = ClassRegistry::shared();
  registry.add({.name = "PXPath",
                .superclass = "",
                .decode = [](Decoder& decoder) { return initWithCPath(decodePath(decoder)); },
                .create = nullptr,
                .classObject = nullptr});
  registry.add(
      {.name = "PXSubPath",
       .superclass = "PXPath",
       .decode = [](Decoder& decoder) { return PXSubPath::initWithCPath(decodePath(decoder)); },
       .create = nullptr,
       .classObject = nullptr});
}

}  // namespace hoist
