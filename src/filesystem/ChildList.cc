// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/ChildList.h"

#include <algorithm>
#include <numeric>
#include <vector>

#include "platform/Collation.h"

// Sorting takes the chain apart into an array, sorts that and chains it anew: merge sort either
// way, but without a cache miss at each link, and without recursion along the chain.

namespace hoist {

// The children while they are out of the chain; goes back into it when this goes away.
class ChildList::Unchained {
 public:
  explicit Unchained(ChildList& list) : list_(list) {
    children.reserve(list.count_);
    auto child = std::move(list.first_);
    while (child) {
      auto next = std::move(child->next_);
      children.push_back(std::move(child));
      child = std::move(next);
    }
    list_ = ChildList();
  }
  ~Unchained() {
    for (auto& child : children) list_.append(std::move(child));
  }
  Unchained(const Unchained&) = delete;
  Unchained& operator=(const Unchained&) = delete;

  std::vector<Ref<PXFileInfo>> children;

 private:
  ChildList& list_;
};

void ChildList::append(Ref<PXFileInfo> child) {
  auto added = child.get();
  (last_ ? last_->next_ : first_) = std::move(child);
  last_ = added;
  ++count_;
}

// What is sorted are the positions: a comparison that throws must not lose a child that is just
// being moved.
template <class Before>
void ChildList::arrange(Unchained& unchained, Before&& before) {
  auto& children = unchained.children;
  std::vector<std::uint32_t> order(children.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), before);
  std::vector<Ref<PXFileInfo>> sorted;
  sorted.reserve(children.size());
  for (auto position : order) sorted.push_back(std::move(children[position]));
  children.swap(sorted);
}

void ChildList::sort(const Comparison& compare) {
  Unchained unchained(*this);
  auto& children = unchained.children;
  arrange(unchained, [&](std::uint32_t a, std::uint32_t b) {
    return compare(*children[a], *children[b]) < 0;
  });
}

void ChildList::sortByName() {
  Unchained unchained(*this);
  auto& children = unchained.children;
  std::vector<std::string> keys;
  keys.reserve(children.size());
  for (auto& child : children) keys.push_back(finderLikeKey(child->cName()));
  arrange(unchained, [&](std::uint32_t a, std::uint32_t b) {
    if (auto order = keys[a] <=> keys[b]; order != 0) return order < 0;
    return std::string_view(children[a]->cName()) < std::string_view(children[b]->cName());
  });
}

}  // namespace hoist
