// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/Flames.h"

#include "sample/Sampling.h"

namespace hoist::sample {
namespace {

using flamegraph::Box;

Box functionBox(const CallGraph& graph, std::uint32_t index) {
  const CallGraph::Node& node = graph.nodes()[index];
  Box box{.name = node.function->name, .image = node.function->imageName, .width = node.total};
  for (std::uint32_t child : node.children) box.above.push_back(functionBox(graph, child));
  return box;
}

}  // namespace

flamegraph::FlameGraph flameGraph(const Sampling& sampling) {
  flamegraph::FlameGraph graph;
  graph.title = flamegraph::titleText(sampling.name, sampling.process);
  graph.subtitle = flamegraph::subtitleText(sampling.samples,
                                            std::chrono::duration<double>(sampling.sampled).count(),
                                            sampling.threads.size(), sampling.stackCount());
  graph.ownNames.push_back(graph.title);
  graph.all = {.name = graph.ownNames.back(), .width = sampling.stackCount()};
  for (const ThreadGraph& thread : sampling.threads) {
    graph.ownNames.push_back(flamegraph::threadText(thread.id, thread.name));
    Box& box = graph.all.above.emplace_back(
        Box{.name = graph.ownNames.back(), .width = thread.graph.root().total});
    for (std::uint32_t child : thread.graph.root().children) {
      box.above.push_back(functionBox(thread.graph, child));
    }
  }
  return graph;
}

}  // namespace hoist::sample
