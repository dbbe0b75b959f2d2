// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <vector>

#include "filesystem/PXFileInfo.h"

namespace hoist {

// The children of a folder, chained by their next links in the order in which they were read, until
// they are sorted. Lets go of them in the background. Not locked.
class ChildList {
 public:
  using Comparison = std::function<std::strong_ordering(const PXFileInfo&, const PXFileInfo&)>;

  ChildList() = default;
  ChildList(ChildList&&) = default;
  ChildList& operator=(ChildList&&) = default;
  ~ChildList();

  const Ref<PXFileInfo>& first() const { return first_; }
  std::uint64_t count() const { return count_; }
  void append(Ref<PXFileInfo> child);
  void append(ChildList&& children);

  // Merge sort: of two children the right one goes first only when the comparison of the left one
  // with it says "greater", so those that compare equal keep their order. An exception of the
  // comparison passes on and leaves the list as it was; one that contradicts itself gives some
  // order.
  void sort(const Comparison& compare);
  // The same with PXFileInfo::compareNames, but with each name's key made once.
  void sortByName();

 private:
  using Links = std::vector<Ref<PXFileInfo>*>;
  template <class Visit>
  Links links(Visit&& visit);
  void chainAnew(const Links& links, const std::vector<std::uint32_t>& order);

  Ref<PXFileInfo> first_;
  PXFileInfo* last_ = nullptr;
  std::uint64_t count_ = 0;
};

}  // namespace hoist
