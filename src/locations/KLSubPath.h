// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "locations/KLPath.h"

namespace hoist {

// A folder by its name in another one.
class KLSubPath final : public KLPath {
 public:
  KLSubPath(std::optional<std::string> folderName, Ref<KLPath> enclosingPath,
            std::optional<Dictionary> attributes);

  // initWithName:inPath:, initWithName:inPath:withAttributes:
  static Ref<KLSubPath> initWithName(std::string_view name, Ref<KLPath> enclosingPath,
                                     std::optional<Dictionary> attributes = std::nullopt);

  const Ref<KLPath>& enclosingPath() const { return enclosingPath_; }
  const std::optional<std::string>& folderName() const { return folderName_; }

  // The enclosing folders first, each with its own attributes.
  void create() override;

  std::string className() const override { return "KLSubPath"; }
  void encodeWithCoder(Encoder& encoder) const override;
  static Ref<Object> decode(Decoder& decoder);

 protected:
  std::optional<std::string> constructPath() const override;

 private:
  Ref<KLPath> enclosingPath_;
  std::optional<std::string> folderName_;
};

}  // namespace hoist
