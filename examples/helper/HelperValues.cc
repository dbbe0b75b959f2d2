// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "HelperValues.h"

#include "values/ClassRegistry.h"
#include "values/Coder.h"

namespace hoist::example {

void HelperValue::encodeWithCoder(Encoder& encoder) const {
  encoder.encodeObject(key_, text_);
}

void HelperValue::registerClasses() {
  for (auto [className, key] : {std::pair{"RepositoryReference", "path"},
                                {"LayerPicker", "layer"},
                                {"FullyQualifiedIdentifier", "identifier"},
                                {"InstallComponent", "name"},
                                {"ActionPowerRequest", "reason"}}) {
    ClassRegistry::shared().add(
        {.name = className, .decode = [className = className, key = key](Decoder& decoder) {
           auto text = decoder.decodeString(key);
           if (!text) throw DecodeError(std::string(className) + " without its " + key);
           return make<HelperValue>(className, key, *text);
         }});
  }
}

}  // namespace hoist::example
