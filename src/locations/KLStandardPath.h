// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "locations/KLPath.h"
#include "platform/StandardFolders.h"

namespace hoist {

// A standard folder of the platform, the first that it has in the domains.
class KLStandardPath final : public KLPath {
 public:
  KLStandardPath(std::uint64_t standardDirectory, std::uint64_t domainMask,
                 std::optional<Dictionary> attributes);

  // initWithStandardDirectory:, initWithStandardDirectory:inDomains:withAttributes:
  static Ref<KLStandardPath> initWithStandardDirectory(
      std::uint64_t directory, std::uint64_t domains = kUserDomain,
      std::optional<Dictionary> attributes = std::nullopt);

  std::uint64_t standardDirectory() const { return standardDirectory_; }
  std::uint64_t domainMask() const { return domainMask_; }

  // A link to a folder is one: where the platform's folders are is the administrator's concern.
  bool exists() override;

  std::string className() const override { return "KLStandardPath"; }
  void encodeWithCoder(Encoder& encoder) const override;
  static Ref<Object> decode(Decoder& decoder);

 protected:
  std::optional<std::string> constructPath() const override;

 private:
  std::uint64_t standardDirectory_;
  std::uint64_t domainMask_;
};

}  // namespace hoist
