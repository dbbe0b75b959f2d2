// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sample/Image.h"

namespace hoist::sample {

class TargetProcess;

// The images that the target has loaded, and those that it once had: addresses of samples taken
// earlier go on meaning the image that was there. Used by one thread.
class ImageMap {
 public:
  ImageMap(const TargetProcess& process, std::string debugFolder);

  // Looks at the target's memory again. True if images came or went. At most kMost are kept.
  bool refresh();

  // Loaded now, by address.
  const std::vector<Image*>& loaded() const { return loaded_; }
  // Every one ever seen.
  const std::vector<std::unique_ptr<Image>>& all() const { return all_; }
  // The loaded one at the address, or null.
  Image* at(Address address) const;

 private:
  static constexpr std::size_t kMost = 4096;

  Image* known(const ImageRange& range) const;

  const TargetProcess& process_;
  std::string debugFolder_;
  std::vector<std::unique_ptr<Image>> all_;
  std::vector<Image*> loaded_;
};

}  // namespace hoist::sample
