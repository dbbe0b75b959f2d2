// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/StackTree.h"

namespace hoist::sample {

StackTree::Node StackTree::add(std::span<const Frame> innermostFirst, std::uint64_t weight) {
  Node node = kRoot;
  for (std::size_t i = innermostFirst.size(); i-- > 0;) {
    const Key key{node, innermostFirst[i]};
    auto found = nodes_.find(key);
    if (found == nodes_.end()) {
      if (entries_.size() >= kMostNodes) break;
      found = nodes_.emplace(key, static_cast<Node>(entries_.size())).first;
      entries_.push_back({key.frame, node});
    }
    node = found->second;
  }
  entries_[node].own += weight;
  return node;
}

}  // namespace hoist::sample
