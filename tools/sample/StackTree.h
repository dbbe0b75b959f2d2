// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

#include "sample/MemoryMap.h"

namespace hoist::sample {

class Image;

// One level of a stack: where in the code a function is, or where it waits for the one it called.
struct Frame {
  // Of the instruction; for a caller, of the call rather than of the instruction after it.
  Address address = 0;
  // What was loaded there at that time; null for memory without a file.
  Image* image = nullptr;

  friend bool operator==(const Frame&, const Frame&) = default;
};

// The stacks of one thread, as a tree from the outermost function inwards, with how often the
// thread was found at each node's own frame. Used by one thread.
class StackTree {
 public:
  using Node = std::uint32_t;
  static constexpr Node kRoot = 0;

  struct Entry {
    Frame frame;
    Node parent;
    std::uint64_t own = 0;
  };

  StackTree() : entries_{Entry{{}, kRoot}} {}

  // Counts a stack, innermost frame first, as that many samples; answers its innermost node.
  Node add(std::span<const Frame> innermostFirst, std::uint64_t weight);
  // Counts the stack once more.
  void addAgain(Node innermost, std::uint64_t weight) { entries_[innermost].own += weight; }

  // By node; a parent always comes before its children. The first is the root, without a frame.
  const std::vector<Entry>& entries() const { return entries_; }

 private:
  struct Key {
    Node parent;
    Frame frame;
    friend bool operator==(const Key&, const Key&) = default;
  };
  struct Hash {
    std::size_t operator()(const Key& key) const {
      return (key.frame.address * 0x9e3779b97f4a7c15u) ^ (std::size_t{key.parent} << 17);
    }
  };
  // Beyond these (picked, 64 bytes each) new stacks are counted where they leave the tree.
  static constexpr std::size_t kMostNodes = 4'000'000;

  std::vector<Entry> entries_;
  std::unordered_map<Key, Node, Hash> nodes_;
};

}  // namespace hoist::sample
