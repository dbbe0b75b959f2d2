// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "values/Object.h"

namespace hoist::example {

// The value classes that the helper and its clients have between them. To this example each is one
// text under a name: the path of a RepositoryReference, the layer of a LayerPicker, the identifier
// of a FullyQualifiedIdentifier, the name of an InstallComponent, the reason of an
// ActionPowerRequest. Immutable.
class HelperValue final : public Object {
 public:
  HelperValue(std::string className, std::string key, std::string text)
      : className_(std::move(className)), key_(std::move(key)), text_(std::move(text)) {}

  std::string className() const override { return className_; }
  std::string description() const override { return text_; }
  bool isCodable() const override { return true; }
  void encodeWithCoder(Encoder& encoder) const override;

  // Makes the classes known to the class registry.
  static void registerClasses();

 private:
  const std::string className_;
  const std::string key_;
  const std::string text_;
};

}  // namespace hoist::example
