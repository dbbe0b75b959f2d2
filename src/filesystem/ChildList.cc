// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/ChildList.h"

#include <algorithm>
#include <numeric>
#include <span>
#include <vector>

#include "filesystem/ChainRelease.h"
#include "platform/NameSorting.h"

// Sorting orders the links of the chain in an array, then chains the children anew: merge sort
// either way, but without a cache miss at each link, and without recursion along the chain. Until
// the order is known, nothing moves, so whatever is thrown leaves the list as it was.
//
// The merge sort is our own because the comparison is the caller's: children may change while they
// are sorted, and std::stable_sort leaves its array when a comparison contradicts itself.

namespace hoist {
namespace {

// How many children ahead memory is asked for: they lie far apart when their order changes.
constexpr std::size_t kAhead = 8;

using Order = std::span<std::uint32_t>;

// Asks only whether a left one and a right one descend: if not, the left one goes first. The room
// is as large as the order. Recurses as often as the order can be halved.
template <class Descend>
void mergeSort(Order order, Order room, const Descend& descend) {
  if (order.size() < 2) return;
  auto half = (order.size() + 1) / 2;
  auto left = order.first(half), right = order.subspan(half);
  mergeSort(left, room, descend);
  mergeSort(right, room, descend);
  auto merged = room.first(order.size());
  std::ranges::merge(left, right, merged.begin(), [&](auto b, auto a) { return descend(a, b); });
  std::ranges::copy(merged, order.begin());
}

}  // namespace

ChildList::~ChildList() {
  // Here, the first child that is a folder would let go of its first child, and so on down the
  // tree: a call for each level.
  if (first_) releaseInBackground(std::move(first_));
}

void ChildList::append(Ref<PXFileInfo> child) {
  auto added = child.get();
  (last_ ? last_->next_ : first_) = std::move(child);
  last_ = added;
  ++count_;
}

void ChildList::append(ChildList&& children) {
  if (!children.first_) return;
  (last_ ? last_->next_ : first_) = std::move(children.first_);
  last_ = std::exchange(children.last_, nullptr);
  count_ += std::exchange(children.count_, 0);
}

// The links that hold the children.
template <class Visit>
ChildList::Links ChildList::links(Visit&& visit) {
  Links links;
  links.reserve(count_);
  for (auto link = &first_; *link; link = &(*link)->next_) {
    links.push_back(link);
    visit(**link);
  }
  return links;
}

void ChildList::chainAnew(const Links& links, const std::vector<std::uint32_t>& order) {
  std::vector<Ref<PXFileInfo>> children;
  children.reserve(links.size());
  for (auto link : links) children.push_back(std::move(*link));
  ChildList list;
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (i + kAhead < order.size()) __builtin_prefetch(&children[order[i + kAhead]]->next_, 1);
    list.append(std::move(children[order[i]]));
  }
  *this = std::move(list);
}

void ChildList::sort(const Comparison& compare) {
  auto links = this->links([](auto&) {});
  std::vector<std::uint32_t> order(links.size());
  std::iota(order.begin(), order.end(), 0);
  std::vector<std::uint32_t> room(order.size());
  mergeSort(order, room, [&](auto a, auto b) { return compare(**links[a], **links[b]) > 0; });
  chainAnew(links, order);
}

void ChildList::sortByName() {
  NameSorting names(count_);
  auto links = this->links([&](auto& child) { names.add(child.cName()); });
  chainAnew(links, names.order());
}

}  // namespace hoist
