// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/CallGraph.h"

#include <algorithm>

namespace hoist::sample {

CallGraph::CallGraph(const StackTree& tree, Functions& functions, std::uint64_t outOfReach)
    : nodes_(1), parents_(1) {
  const auto& entries = tree.entries();
  // Samples that came through each entry: children stand behind their parents.
  std::vector<std::uint64_t> through(entries.size());
  for (std::size_t i = entries.size(); i-- > 0;) {
    through[i] += entries[i].own;
    if (i > 0) through[entries[i].parent] += through[i];
  }
  std::vector<std::uint32_t> nodeOf(entries.size());
  nodes_[0].own = entries[0].own;
  for (std::size_t i = 1; i < entries.size(); ++i) {
    const Function* function = functions.of(entries[i].frame);
    const std::uint32_t node = child(nodeOf[entries[i].parent], function);
    nodes_[node].own += entries[i].own;
    nodes_[node].offsets[entries[i].frame.address - function->start] += through[i];
    nodeOf[i] = node;
  }
  if (outOfReach > 0) nodes_[child(0, functions.outOfReach())].own += outOfReach;
  addUp();
}

std::uint32_t CallGraph::child(std::uint32_t parent, const Function* function) {
  auto [found, isNew] =
      index_.try_emplace({parent, function}, static_cast<std::uint32_t>(nodes_.size()));
  if (isNew) {
    nodes_.emplace_back().function = function;
    nodes_[parent].children.push_back(found->second);
    parents_.push_back(parent);
  }
  return found->second;
}

void CallGraph::addUp() {
  for (std::size_t i = nodes_.size(); i-- > 0;) {
    nodes_[i].total += nodes_[i].own;
    if (i > 0) nodes_[parents_[i]].total += nodes_[i].total;
  }
  for (Node& node : nodes_) {
    std::sort(node.children.begin(), node.children.end(), [this](std::uint32_t a, std::uint32_t b) {
      return nodes_[a].total != nodes_[b].total
                 ? nodes_[a].total > nodes_[b].total
                 : nodes_[a].function->name < nodes_[b].function->name;
    });
  }
}

}  // namespace hoist::sample
