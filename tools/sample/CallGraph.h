// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "sample/Functions.h"
#include "sample/StackTree.h"

namespace hoist::sample {

// The stacks of one thread by function: nodes of a tree in one vector, a parent before its
// children. The first node is the thread itself and has no function.
class CallGraph {
 public:
  struct Node {
    const Function* function = nullptr;
    // Samples that ended here, and those that came through here or ended here.
    std::uint64_t own = 0;
    std::uint64_t total = 0;
    // The most frequent first.
    std::vector<std::uint32_t> children;
    // Where in the function, in bytes from its beginning, and how often.
    std::map<Address, std::uint64_t> offsets;
  };

  // The last argument is how often the thread was out of reach.
  CallGraph(const StackTree& tree, Functions& functions, std::uint64_t outOfReach);

  const std::vector<Node>& nodes() const { return nodes_; }
  const Node& root() const { return nodes_[0]; }

 private:
  std::uint32_t child(std::uint32_t parent, const Function* function);
  void addUp();

  std::vector<Node> nodes_;
  std::vector<std::uint32_t> parents_;
  std::map<std::pair<std::uint32_t, const Function*>, std::uint32_t> index_;
};

// A thread of a finished sampling.
struct ThreadGraph {
  pid_t id = 0;
  // Fit for printing.
  std::string name;
  CallGraph graph;
};

}  // namespace hoist::sample
