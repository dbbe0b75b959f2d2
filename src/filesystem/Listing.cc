// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Folders are read into hundreds of thousands of objects. Made one by one, a third of the time that
// reading takes beyond the system calls went into malloc, another part into its lock, which whoever
// releases the children of the folder before takes at the same time. One block for all children of
// a step costs neither. The price: a child that is kept alone keeps the memory of its step.

#include "filesystem/Listing.h"

#include "filesystem/PXPath.h"

namespace hoist {

Listing::~Listing() = default;

const char* Listing::keepName(std::string_view name) {
  auto kept = static_cast<char*>(memory_.allocate(name.size() + 1, 1));
  name.copy(kept, name.size());
  kept[name.size()] = '\0';
  return kept;
}

void Listing::letGo(std::size_t holds) {
  if (holds_.fetch_sub(holds, std::memory_order_acq_rel) == holds) delete this;
}

void* Listing::do_allocate(std::size_t bytes, std::size_t alignment) {
  auto memory = memory_.allocate(bytes, alignment);
  ++made_;
  return memory;
}

void Listing::do_deallocate(void*, std::size_t, std::size_t) {
  letGo(1);
}

}  // namespace hoist
