// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/ImageMap.h"

#include <algorithm>

#include "sample/TargetProcess.h"

namespace hoist::sample {

ImageMap::ImageMap(const TargetProcess& process, std::string debugFolder)
    : process_(process), debugFolder_(std::move(debugFolder)) {
  refresh();
}

Image* ImageMap::known(const ImageRange& range) const {
  Image* image = at(range.start);
  return image != nullptr && image->range() == range ? image : nullptr;
}

bool ImageMap::refresh() {
  const std::vector<ImageRange> ranges = imageRanges(process_.memoryMap());
  // A process that ended has no memory; what it had loaded stays known.
  if (ranges.empty()) return false;
  std::vector<Image*> loaded;
  bool changed = false;
  for (const ImageRange& range : ranges) {
    Image* image = known(range);
    if (image == nullptr && all_.size() < kMost) {
      image = all_.emplace_back(std::make_unique<Image>(process_, range, debugFolder_)).get();
      changed = true;
    }
    if (image != nullptr) loaded.push_back(image);
  }
  changed = changed || loaded.size() != loaded_.size();
  loaded_ = std::move(loaded);
  return changed;
}

Image* ImageMap::at(Address address) const {
  auto next = std::upper_bound(loaded_.begin(), loaded_.end(), address,
                               [](Address a, Image* image) { return a < image->range().start; });
  return next != loaded_.begin() && next[-1]->holds(address) ? next[-1] : nullptr;
}

}  // namespace hoist::sample
