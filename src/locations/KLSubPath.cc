// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "locations/KLSubPath.h"

namespace hoist {
namespace {

constexpr const char* kEnclosingKey = "enclosing";
constexpr const char* kFolderKey = "folder";

}  // namespace

KLSubPath::KLSubPath(std::optional<std::string> folderName, Ref<KLPath> enclosingPath,
                     std::optional<Dictionary> attributes)
    : KLPath(std::move(attributes)),
      enclosingPath_(std::move(enclosingPath)),
      folderName_(std::move(folderName)) {}

Ref<KLSubPath> KLSubPath::initWithName(std::string_view name, Ref<KLPath> enclosingPath,
                                       std::optional<Dictionary> attributes) {
  return make<KLSubPath>(std::string(name), std::move(enclosingPath), std::move(attributes));
}

std::optional<std::string> KLSubPath::constructPath() const {
  if (!enclosingPath_ || !folderName_) return std::nullopt;
  return enclosingPath_->pathToFile(*folderName_);
}

void KLSubPath::create() {
  if (enclosingPath_) enclosingPath_->create();
  KLPath::create();
}

void KLSubPath::encodeWithCoder(Encoder& encoder) const {
  KLPath::encodeWithCoder(encoder);
  encoder.encodeObject(kEnclosingKey,
                       enclosingPath_ ? std::optional<Value>(enclosingPath_) : std::nullopt);
  encoder.encodeObject(kFolderKey, folderName_ ? std::optional<Value>(*folderName_) : std::nullopt);
}

Ref<Object> KLSubPath::decode(Decoder& decoder) {
  auto attributes = decodeAttributes(decoder);
  auto enclosing = decoder.decodeObject(kEnclosingKey, {"KLPath"});
  return make<KLSubPath>(decoder.decodeString(kFolderKey),
                         enclosing ? enclosing->objectAs<KLPath>() : nullptr,
                         std::move(attributes));
}

}  // namespace hoist
